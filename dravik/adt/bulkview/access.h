// SPDX-License-Identifier: Apache-2.0
#pragma once

// AdtEnums: the ways in which a block of samples is asked for and lent. Plain values. Threads: as `int`.

namespace Quorvel::Dravik::Adt::BulkView {

/// Carries the enumeration Access and what its values mean.
class AdtEnums {
  public:
    /// What a loan allows. Values from elsewhere may lie outside these five; such a value allows nothing.
    enum Access : int {
        NoAccess = 0,   ///< no loan: the access of an empty or invalidated handle
        Read = 1,       ///< read only
        ReadWrite = 2,  ///< read and write
        Write = 3,      ///< write only: what is in the block before means nothing
        Populate = 4,   ///< fill the block for the first time; counts neither as reading nor as writing
    };

    static constexpr bool isReadAccess(Access access) noexcept { return access == Read || access == ReadWrite; }
    static constexpr bool isWriteAccess(Access access) noexcept { return access == Write || access == ReadWrite; }
    static constexpr bool isPopulateAccess(Access access) noexcept { return access == Populate; }
};

}  // namespace Quorvel::Dravik::Adt::BulkView
