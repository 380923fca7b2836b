// SPDX-License-Identifier: Apache-2.0
#include "capi/batch.h"

#include "capi/numbers.h"

namespace flow::capi {
namespace {

std::uint64_t Milliseconds(const TimePair& time) {
  return static_cast<std::uint64_t>(time.seconds * 1000 + time.milliseconds);
}

}  // namespace

Batch::Place Batch::Keep(std::string_view text) {
  const Place place = texts_.size();
  texts_.append(text).push_back('\0');
  return place;
}

Batch::Place Batch::KeepKey(std::string_view key) {
  const bool same =
      last_key_ != kNone && key == std::string_view(texts_).substr(last_key_, last_length_);
  if (!same) {
    last_key_ = Keep(key);
    last_length_ = key.size();
  }
  return last_key_;
}

void Batch::OnCounter(const GUID& group, std::string_view key, int meter, std::uint64_t value) {
  if (callbacks_.counters == nullptr) return;
  counter_keys_.push_back(KeepKey(key));
  counters_.push_back({nullptr, value, static_cast<std::uint32_t>(key.size()), GroupNumber(group),
                       static_cast<std::uint16_t>(meter)});
}

void Batch::OnLabel(const GUID& group, std::string_view key, const char* label,
                    const char* description) {
  AddNote(group, key, "label", label);
  AddNote(group, key, "description", description);
}

void Batch::OnProperty(const GUID& group, std::string_view key, const char* name,
                       const char* value) {
  AddNote(group, key, name, value);
}

void Batch::AddNote(const GUID& group, std::string_view key, const char* name, const char* value) {
  if (callbacks_.notes == nullptr || value == nullptr) return;
  notes_.push_back({Keep(key), Keep(name), Keep(value), GroupNumber(group)});
}

void Batch::AddFlow(std::uint32_t kind, std::string_view key, std::uint64_t first,
                    std::uint64_t second, std::uint64_t third, std::uint64_t fourth,
                    const char* text) {
  if (callbacks_.flows == nullptr) return;
  flow_texts_.push_back({KeepKey(key), text == nullptr ? kNone : Keep(text)});
  flows_.push_back({nullptr,
                    nullptr,
                    {first, second, third, fourth},
                    static_cast<std::uint32_t>(key.size()),
                    kind});
}

void Batch::OnFlowVolume(std::string_view key, std::uint64_t bytes_one_way,
                         std::uint64_t bytes_other_way, std::uint64_t packets_one_way,
                         std::uint64_t packets_other_way) {
  AddFlow(FH_FLOW_VOLUME, key, bytes_one_way, bytes_other_way, packets_one_way, packets_other_way);
}

void Batch::OnFlowCounter(std::string_view key, int meter, std::uint64_t value, const char* text) {
  AddFlow(FH_FLOW_METER, key, static_cast<std::uint64_t>(meter), value, 0, 0, text);
}

void Batch::OnFlowTimes(std::string_view key, const TimePair& start, const TimePair& end) {
  AddFlow(FH_FLOW_TIMES, key, Milliseconds(start), Milliseconds(end));
}

void Batch::OnFlowDuration(std::string_view key, std::uint32_t milliseconds) {
  AddFlow(FH_FLOW_DURATION, key, milliseconds);
}

void Batch::OnFlowClosed(std::string_view key) { AddFlow(FH_FLOW_CLOSED, key); }

void Batch::OnFlowTag(std::string_view key, const char* tag) {
  AddFlow(FH_FLOW_TAG, key, 0, 0, 0, 0, tag);
}

void Batch::OnMessage(const GUID& channel, void* data, std::uint32_t length) {
  const int number = ChannelNumber(channel);
  if (callbacks_.templates == nullptr || ChannelOf(number) == nullptr) return;
  templates_.push_back({number, Keep({static_cast<const char*>(data), length}), length});
}

void Batch::Deliver() {
  struct Clearing {
    Batch& batch;
    ~Clearing() { batch.Clear(); }
  } const clearing{*this};
  DeliverAll();
}

void Batch::DeliverAll() {
  for (const Message& message : messages_) {
    if (callbacks_.log != nullptr) {
      callbacks_.log(callbacks_.context, message.level, TextAt(message.text));
    }
  }
  for (const Template& learnt : templates_) {
    callbacks_.templates(callbacks_.context, learnt.channel, TextAt(learnt.data), learnt.length);
  }
  DeliverCounters();
  DeliverFlows();
  std::vector<fh_note> notes;
  for (const Note& note : notes_) {
    notes.push_back({TextAt(note.key), TextAt(note.name), TextAt(note.value), note.group});
  }
  if (!notes.empty()) callbacks_.notes(callbacks_.context, notes.data(), notes.size());
}

void Batch::DeliverCounters() {
  if (counters_.empty()) return;
  for (std::size_t i = 0; i < counters_.size(); ++i) counters_[i].key = TextAt(counter_keys_[i]);
  callbacks_.counters(callbacks_.context, counters_.data(), counters_.size());
}

void Batch::DeliverFlows() {
  if (flows_.empty()) return;
  for (std::size_t i = 0; i < flows_.size(); ++i) {
    flows_[i].key = TextAt(flow_texts_[i].key);
    flows_[i].text = TextAt(flow_texts_[i].text);
  }
  callbacks_.flows(callbacks_.context, flows_.data(), flows_.size());
}

void Batch::Clear() {
  texts_.clear();
  last_key_ = kNone;
  counters_.clear();
  counter_keys_.clear();
  flows_.clear();
  flow_texts_.clear();
  notes_.clear();
  messages_.clear();
  templates_.clear();
}

}  // namespace flow::capi
