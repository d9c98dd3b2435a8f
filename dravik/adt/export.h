// SPDX-License-Identifier: Apache-2.0
#pragma once

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
