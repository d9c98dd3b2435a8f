// SPDX-License-Identifier: Apache-2.0
#pragma once

// Int1: the name of the one-bit sample type. Threads: as `int`.

namespace Quorvel::Dravik::Adt {

/// Stands for one packed bit wherever a sample type is named by its type information.
///
/// Nothing is ever stored in an object of it. In memory eight of them share a byte: value position p of a one-bit array
/// is bit p mod 8, counted from the least significant bit, of byte p div 8. Unit of positions and strides: bits.
class Int1 {};

}  // namespace Quorvel::Dravik::Adt
