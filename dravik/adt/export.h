// SPDX-License-Identifier: Apache-2.0
#pragma once

#if defined(__cplusplus) && __cplusplus < 202002L
#error "dravik-adt needs C++20: compile with -std=c++20 or later"
#include <dravik-adt needs C++20>  // ends the compilation here, before hundreds of errors that follow from the first
#endif

/// Marks what crosses the border of the shared library: functions that users link to, and classes whose type identity
/// (catch, dynamic_cast, typeid) must be the same on both sides. Everything else stays hidden.
#if defined(_WIN32)
#if defined(DRAVIK_ADT_BUILDING)
#define DRAVIK_ADT_EXPORT __declspec(dllexport)
#else
#define DRAVIK_ADT_EXPORT __declspec(dllimport)
#endif
#else
#define DRAVIK_ADT_EXPORT __attribute__((visibility("default")))
#endif
