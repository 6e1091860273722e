// sanitized.h - is this a sanitizer build? A sanitizer keeps freed memory for a while and works on its own account
// meanwhile, so that numbers of memory and processor time say nothing of the library.
#pragma once

namespace qvtest {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool bSanitized = true;
#else
constexpr bool bSanitized = false;
#endif
#else
constexpr bool bSanitized = false;
#endif

} // namespace qvtest
