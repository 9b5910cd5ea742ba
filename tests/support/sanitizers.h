// How much slower the sanitizer builds run the code under test: timing bounds that tell
// right from wrong behaviour in the normal build are scaled by it, never dropped.
#ifndef QXNET_TESTS_SANITIZERS_H
#define QXNET_TESTS_SANITIZERS_H

#if defined(__SANITIZE_THREAD__)
#define QXTEST_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QXTEST_TSAN 1
#endif
#endif

#if defined(__SANITIZE_ADDRESS__)
#define QXTEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QXTEST_ASAN 1
#endif
#endif

namespace qxtest {
#if defined(QXTEST_TSAN)
constexpr double kSanitizerSlowdown = 5.0;
#elif defined(QXTEST_ASAN)
constexpr double kSanitizerSlowdown = 2.0;
#else
constexpr double kSanitizerSlowdown = 1.0;
#endif
}  // namespace qxtest

#endif
