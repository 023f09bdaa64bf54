// What libmorrowplatform.so shows to those who link it; everything else in it is hidden.
#pragma once

#if defined(MORROW_PLATFORM_BUILD)
#define MORROW_PLATFORM_API __attribute__((visibility("default")))
#else
#define MORROW_PLATFORM_API
#endif
