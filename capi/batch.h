// SPDX-License-Identifier: Apache-2.0
// The engine of a collector: keeps what one datagram brings until it is handed out.
//
// Nothing is handed out while the plug-in is at work, so that no callback runs, or throws, inside
// it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "flowhandlers.h"
#include "flowhandlers/kit/engine.h"

namespace flow::capi {

class Batch final : public kit::Engine {
 public:
  explicit Batch(const fh_callbacks& callbacks) : callbacks_(callbacks) {}

  // Log keeps a message of the plug-in.
  void Log(int level, const char* text) { messages_.push_back({level, Keep(text)}); }

  // Deliver hands everything out and forgets it, what a callback that throws has not seen included.
  void Deliver();

  [[nodiscard]] std::uint64_t records() const { return records_; }

  void OnCounter(const GUID& group, std::string_view key, int meter, std::uint64_t value) override;
  void OnLabel(const GUID& group, std::string_view key, const char* label,
               const char* description) override;
  void OnProperty(const GUID& group, std::string_view key, const char* name,
                  const char* value) override;
  void OnFlowVolume(std::string_view key, std::uint64_t bytes_one_way,
                    std::uint64_t bytes_other_way, std::uint64_t packets_one_way,
                    std::uint64_t packets_other_way) override;
  void OnFlowCounter(std::string_view key, int meter, std::uint64_t value,
                     const char* text) override;
  void OnFlowTimes(std::string_view key, const TimePair& start, const TimePair& end) override;
  void OnFlowDuration(std::string_view key, std::uint32_t milliseconds) override;
  void OnFlowClosed(std::string_view key) override;
  void OnFlowTag(std::string_view key, const char* tag) override;
  void OnRecord() override { ++records_; }
  void OnMessage(const GUID& channel, void* data, std::uint32_t length) override;

 private:
  // A kept text: where it begins among the texts, which move while they grow.
  using Place = std::size_t;
  static constexpr Place kNone = ~Place{0};

  struct FlowPlaces {
    Place key, text;
  };
  struct Note {
    Place key, name, value;
    std::uint32_t group;
  };
  struct Message {
    int level;
    Place text;
  };
  struct Template {
    int channel;
    Place data;
    std::size_t length;
  };

  Place Keep(std::string_view text);
  Place KeepKey(std::string_view key);
  [[nodiscard]] const char* TextAt(Place place) const {
    return place == kNone ? nullptr : texts_.data() + place;
  }
  void AddFlow(std::uint32_t kind, std::string_view key, std::uint64_t first = 0,
               std::uint64_t second = 0, std::uint64_t third = 0, std::uint64_t fourth = 0,
               const char* text = nullptr);
  void AddNote(const GUID& group, std::string_view key, const char* name, const char* value);
  void DeliverAll();
  void DeliverCounters();
  void DeliverFlows();
  void Clear();

  fh_callbacks callbacks_;
  std::uint64_t records_ = 0;
  std::string texts_;
  Place last_key_ = kNone;  // a key is updated several times in a row
  std::size_t last_length_ = 0;
  // Updates, whose texts are filled in when they are handed out, and where these are.
  std::vector<fh_counter> counters_;
  std::vector<Place> counter_keys_;
  std::vector<fh_flow> flows_;
  std::vector<FlowPlaces> flow_texts_;
  std::vector<Note> notes_;
  std::vector<Message> messages_;
  std::vector<Template> templates_;
};

}  // namespace flow::capi
