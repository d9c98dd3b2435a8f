// SPDX-License-Identifier: Apache-2.0
#pragma once

// Input: what an argument of the command line names. A plain record. Threads: as its members.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/command/session.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <string>

namespace Quorvel::Dravik::Command {

/// Definitions, not yet opened.
struct Input {
    std::string name;  ///< as the user wrote it
    boost::shared_ptr<Adt::BulkDef::EntityDef const> entity;
    boost::shared_ptr<Adt::BulkDef::ViewDef const> view;  ///< null: all of it

    /// One line of JSON that opens the same.
    std::string text() const;
};

/// A chain, what is known about it, and its shape without the axes that it does not have.
struct Opened {
    Adt::BulkView::OpenedData data;
    std::vector<int> shape;
    std::type_info const* sampleType;  ///< never null or void

    Adt::OpenEndedRange<4, int> box() const { return Adt::OpenEndedRange<4, int>::OfSize(data.chain->getSize()); }
};

/// `argument`: a file, FILE:variable, @ and the name of a file with the text of a definition, or - for such a text on
/// standard input.
/// @throws std::exception with one line that says what is wrong
Input inputOf(std::string const& argument, Session const& session);

/// @throws std::exception with one line that begins with the input's name
Opened open(Input const& input, Session const& session);

/// The same definition with what it shows changed by one more transform.
Input transformed(Input input, Adt::BulkDef::TransformDef const& transform);

/// The same definition seen through one more view.
/// @throws std::exception where the view does not fit
Input seenThrough(Input input, Adt::BulkDef::ViewDef const& view);

/// "2161 x 4320"
std::string shapeText(std::vector<int> const& shape);

}  // namespace Quorvel::Dravik::Command
