// SPDX-License-Identifier: Apache-2.0
#pragma once

// FormTable: what a set of forms holds at one moment. Never changed once it is shared.

#include "dravik/text/forms.h"

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <typeindex>
#include <unordered_map>

namespace Quorvel::Dravik::Text::Detail {

/// The forms of one root.
template <class Root>
struct FormsOf {
    using Pointer = std::shared_ptr<Form<Root> const>;
    struct Writing {
        Pointer form;
        typename Form<Root>::Write const* write;
    };

    std::map<std::string, Pointer, std::less<>> byName;
    std::unordered_map<std::type_index, Writing> byClass;
};

struct FormTable {
    template <class Root>
    FormsOf<Root>& of() noexcept {
        return std::get<FormsOf<Root>>(roots);
    }
    template <class Root>
    FormsOf<Root> const& of() const noexcept {
        return std::get<FormsOf<Root>>(roots);
    }

    std::tuple<FormsOf<EntityDef>, FormsOf<SourceDef>, FormsOf<TransformDef>, FormsOf<ViewDef>> roots;
};

/// Adds the forms of the library's own definitions.
void addStandardForms(Forms& forms);

}  // namespace Quorvel::Dravik::Text::Detail
