#include "host/store/read_limit.h"

namespace flow::host {
namespace {

thread_local ReadLimit current;

}  // namespace

const ReadLimit& ReadLimit::Current() { return current; }

ReadLimit::Scope::Scope(const ReadLimit& limit) : before_(current.end_) { current = limit; }

ReadLimit::Scope::~Scope() { current = ReadLimit(before_); }

}  // namespace flow::host
