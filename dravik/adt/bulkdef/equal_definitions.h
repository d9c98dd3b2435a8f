// SPDX-License-Identifier: Apache-2.0
#pragma once

// What makes shared pointers to definitions keys of unordered containers: std::hash and EqualDefinitions look at what
// is described, not at where it lies in memory. Included by the four roots. Threads: as reading the definitions.

#include <boost/smart_ptr/shared_ptr.hpp>

#include <concepts>
#include <cstddef>
#include <functional>
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

/// Equality of the definitions that two pointers lead to. Two empty pointers are equal, an empty one and another are
/// not.
///
/// Takes definitions by reference, too, so that a table is searched without cloning the key:
///
///     using Key = boost::shared_ptr<EntityDef const>;
///     std::unordered_map<Key, Grid, std::hash<Key>, EqualDefinitions> open;
///     open.emplace(entity.clone(), grid);
///     auto const found = open.find(entity);
struct EqualDefinitions {
    using is_transparent = void;

    template <class Left, class Right>
    bool operator()(Left const& left, Right const& right) const {
        auto const* const leftDef = addressOf(left);
        auto const* const rightDef = addressOf(right);
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
};

}  // namespace Quorvel::Dravik::Adt::BulkDef

/// The hash code of the definition; 0 for an empty pointer.
template <Quorvel::Dravik::Adt::BulkDef::Definition Def>
struct std::hash<boost::shared_ptr<Def>> {
    using is_transparent = void;

    std::size_t operator()(boost::shared_ptr<Def> const& def) const { return def ? (*this)(*def) : 0; }
    std::size_t operator()(Def const& def) const {
        return static_cast<std::size_t>(static_cast<unsigned int>(def.getHashCode()));
    }
};
