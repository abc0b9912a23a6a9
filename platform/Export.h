#pragma once
// Symbols are hidden by default; every class or function that makes up the
// library's boundary carries NVK_EXPORT.
#if defined(_WIN32)
#  if defined(NVK_BUILDING_LIBRARY)
#    define NVK_EXPORT __declspec(dllexport)
#  else
#    define NVK_EXPORT __declspec(dllimport)
#  endif
#else
#  define NVK_EXPORT __attribute__((visibility("default")))
#endif
