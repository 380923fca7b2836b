// SPDX-License-Identifier: Apache-2.0
// The C library's <threads.h> over POSIX threads, for programs under the thread sanitizer, which
// watches the latter alone: librdkafka's threads are unknown to it, so that it ends the process,
// and its locks would order nothing. Types and memory are the same in the C library.
#include <pthread.h>
#include <threads.h>

#include <cerrno>
#include <cstdint>
#include <memory>

#define FLOW_PUBLIC __attribute__((visibility("default")))

namespace {

static_assert(sizeof(mtx_t) == sizeof(pthread_mutex_t) && sizeof(cnd_t) == sizeof(pthread_cond_t));

pthread_mutex_t* Posix(mtx_t* mutex) { return reinterpret_cast<pthread_mutex_t*>(mutex); }
pthread_cond_t* Posix(cnd_t* condition) { return reinterpret_cast<pthread_cond_t*>(condition); }

int ResultOf(int error) {
  switch (error) {
    case 0:
      return thrd_success;
    case ENOMEM:
      return thrd_nomem;
    case ETIMEDOUT:
      return thrd_timedout;
    case EBUSY:
      return thrd_busy;
    default:
      return thrd_error;
  }
}

struct Start {
  thrd_start_t function;
  void* argument;
};

void* Run(void* given) {
  const Start start = *std::unique_ptr<Start>(static_cast<Start*>(given));
  return reinterpret_cast<void*>(std::intptr_t{start.function(start.argument)});
}

}  // namespace

extern "C" {

FLOW_PUBLIC int thrd_create(thrd_t* thread, thrd_start_t function, void* argument) {
  auto start = std::make_unique<Start>(Start{function, argument});
  const int error = pthread_create(thread, nullptr, Run, start.get());
  if (error == 0) static_cast<void>(start.release());
  return ResultOf(error);
}

FLOW_PUBLIC int thrd_join(thrd_t thread, int* result) {
  void* returned = nullptr;
  const int error = pthread_join(thread, &returned);
  if (result != nullptr) *result = static_cast<int>(reinterpret_cast<std::intptr_t>(returned));
  return ResultOf(error);
}

FLOW_PUBLIC int mtx_init(mtx_t* mutex, int type) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  if ((type & mtx_recursive) != 0) {
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  }
  const int error = pthread_mutex_init(Posix(mutex), &attributes);
  pthread_mutexattr_destroy(&attributes);
  return ResultOf(error);
}

FLOW_PUBLIC void mtx_destroy(mtx_t* mutex) { pthread_mutex_destroy(Posix(mutex)); }
FLOW_PUBLIC int mtx_lock(mtx_t* mutex) { return ResultOf(pthread_mutex_lock(Posix(mutex))); }
FLOW_PUBLIC int mtx_unlock(mtx_t* mutex) { return ResultOf(pthread_mutex_unlock(Posix(mutex))); }

FLOW_PUBLIC int cnd_init(cnd_t* condition) {
  return ResultOf(pthread_cond_init(Posix(condition), nullptr));
}
FLOW_PUBLIC void cnd_destroy(cnd_t* condition) { pthread_cond_destroy(Posix(condition)); }
FLOW_PUBLIC int cnd_signal(cnd_t* condition) {
  return ResultOf(pthread_cond_signal(Posix(condition)));
}
FLOW_PUBLIC int cnd_broadcast(cnd_t* condition) {
  return ResultOf(pthread_cond_broadcast(Posix(condition)));
}
FLOW_PUBLIC int cnd_wait(cnd_t* condition, mtx_t* mutex) {
  return ResultOf(pthread_cond_wait(Posix(condition), Posix(mutex)));
}
FLOW_PUBLIC int cnd_timedwait(cnd_t* condition, mtx_t* mutex, const timespec* until) {
  return ResultOf(pthread_cond_timedwait(Posix(condition), Posix(mutex), until));
}

}  // extern "C"
