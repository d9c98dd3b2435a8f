// SPDX-License-Identifier: Apache-2.0
#pragma once

// Definitions as text: one line of JSON that another program, machine or version makes the same definitions of.
// Threads: any.

#include "dravik/text/forms.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace Quorvel::Dravik::Text {

/// The major version of the schema, docs/definition.schema.json, that texts are written in. A larger one is refused.
inline constexpr int kSchemaMajor = 1;

/// What a text holds at most; more is refused where it is written and where it is read.
inline constexpr std::size_t kMostBytes = std::size_t{1} << 22;
inline constexpr int kMostLevels = 512;  ///< objects and arrays inside each other
inline constexpr int kMostDefinitions =
    65536;  ///< those inside others included; an input that is shared counts each time

/// What one text can hold; an empty pointer stands for a part that it does not have.
struct Definitions {
    boost::shared_ptr<EntityDef const> entity = {};
    boost::shared_ptr<SourceDef const> source = {};
    boost::shared_ptr<TransformDef const> transform = {};
    boost::shared_ptr<ViewDef const> view = {};
};

/// The text of a definition, such as
/// {"dravik":1,"view":{"axes":[[11,-1,12],[0,1,16]],"type":"ArraySubset"}}.
///
/// Canonical: keys are sorted, there are no blanks, and numbers have the fewest digits that tell them, so equal
/// definitions have equal texts. What takes no part in equality is written as well, lest it be lost: the scale and
/// offset of a project item and the method of a MultiresDef.
/// @throws TextException where the class of a definition has no form, and beyond kMostBytes, kMostLevels,
/// kMostDefinitions
DRAVIK_ADT_EXPORT std::string toText(EntityDef const& def, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT std::string toText(SourceDef const& def, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT std::string toText(TransformDef const& def, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT std::string toText(ViewDef const& def, Forms const& forms = Forms::standard());
/// One text for several, such as an entity and the view of it.
DRAVIK_ADT_EXPORT std::string toText(Definitions const& defs, Forms const& forms = Forms::standard());

/// The definition that a text holds; never empty. The text may hold definitions of other roots beside it: all are read,
/// and this one is returned.
/// @throws TextException where the text is no JSON, breaks the schema or holds no such definition, and beyond
/// kMostBytes, kMostLevels, kMostDefinitions
DRAVIK_ADT_EXPORT boost::shared_ptr<EntityDef const> entityFromText(
    std::string_view text, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT boost::shared_ptr<SourceDef const> sourceFromText(
    std::string_view text, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT boost::shared_ptr<TransformDef const> transformFromText(
    std::string_view text, Forms const& forms = Forms::standard());
DRAVIK_ADT_EXPORT boost::shared_ptr<ViewDef const> viewFromText(
    std::string_view text, Forms const& forms = Forms::standard());
/// All that a text holds.
DRAVIK_ADT_EXPORT Definitions definitionsFromText(std::string_view text, Forms const& forms = Forms::standard());

}  // namespace Quorvel::Dravik::Text
