#pragma once
// PSDKIT_EXPORT: marks the declarations that make up psdkit's binary interface.
//
// The library is compiled with hidden visibility, so that the shared library exports only what is
// marked here: the public types and functions declared under include/psdkit. Everything else
// (internal helpers, the dependencies' code) stays local to the library.

/// Gives a public class or function default visibility in the shared library.
#if defined(__GNUC__) || defined(__clang__)
#define PSDKIT_EXPORT __attribute__((visibility("default")))
#else
#define PSDKIT_EXPORT
#endif
