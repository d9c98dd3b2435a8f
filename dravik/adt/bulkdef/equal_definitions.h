// SPDX-License-Identifier: Apache-2.0
#pragma once

// EqualDefinitions and HashDefinitions: comparison and hash of definitions by what they describe, not by where they lie
// in memory. Stateless; threads: as reading the definitions.

#include <boost/smart_ptr/shared_ptr.hpp>

#include <concepts>
#include <cstddef>
#include <memory>

namespace Quorvel::Dravik::Adt::BulkDef {

class EntityDef;
class SourceDef;
class TransformDef;
class ViewDef;

/// One of the four roots or a class derived from it.
template <class T>
concept Definition =
    std::convertible_to<T const*, EntityDef const*> || std::convertible_to<T const*, SourceDef const*> ||
    std::convertible_to<T const*, TransformDef const*> || std::convertible_to<T const*, ViewDef const*>;

/// Equality of the definitions that two pointers lead to, or of definitions given by reference. Two empty pointers are
/// equal, an empty one and another are not. Definitions of different roots do not compare.
struct EqualDefinitions {
    using is_transparent = void;

    template <class Left, class Right>
    bool operator()(Left const& left, Right const& right) const {
        auto const* const leftDef = rootOf(addressOf(left));
        decltype(leftDef) rightDef = rootOf(addressOf(right));
        return leftDef == rightDef || (leftDef != nullptr && rightDef != nullptr && leftDef->equals(*rightDef));
    }

  private:
    template <Definition Def>
    static Def const* addressOf(boost::shared_ptr<Def> const& def) noexcept {
        return def.get();
    }
    template <Definition Def>
    static Def const* addressOf(Def const& def) noexcept {
        return std::addressof(def);
    }
    static EntityDef const* rootOf(EntityDef const* def) noexcept { return def; }
    static SourceDef const* rootOf(SourceDef const* def) noexcept { return def; }
    static TransformDef const* rootOf(TransformDef const* def) noexcept { return def; }
    static ViewDef const* rootOf(ViewDef const* def) noexcept { return def; }
};

/// The hash code of a definition, given by pointer or by reference; 0 for an empty pointer.
struct HashDefinitions {
    using is_transparent = void;

    template <Definition Def>
    std::size_t operator()(boost::shared_ptr<Def> const& def) const {
        return def ? (*this)(*def) : 0;
    }
    template <Definition Def>
    std::size_t operator()(Def const& def) const {
        return static_cast<std::size_t>(static_cast<unsigned int>(def.getHashCode()));
    }
};

}  // namespace Quorvel::Dravik::Adt::BulkDef
