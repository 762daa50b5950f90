// Runs code on a thread whose stack is as small as a host's worker thread may have, so that a
// test shows that reading deeply nested input takes no stack in proportion to its depth.
#ifndef VELMAR_TESTS_SMALL_STACK_H
#define VELMAR_TESTS_SMALL_STACK_H

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace velmar {
namespace test {

constexpr std::size_t kHostThreadStack = 256 * 1024;

// False when the thread could not be started.
inline bool OnSmallStack(const std::function<void()>& body) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) {
    return false;
  }
  pthread_t thread;
  auto trampoline = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  auto* argument = const_cast<std::function<void()>*>(&body);
  const bool started = pthread_attr_setstacksize(&attributes, kHostThreadStack) == 0 &&
                       pthread_create(&thread, &attributes, trampoline, argument) == 0;
  if (started) {
    pthread_join(thread, nullptr);
  }
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace test
}  // namespace velmar

#endif  // VELMAR_TESTS_SMALL_STACK_H
