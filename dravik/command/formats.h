// SPDX-License-Identifier: Apache-2.0
#pragma once

// The formats that the program was built with, one row each. Threads: any.

#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkview/stores/data_info.h"
#include "dravik/adt/bulkview/stores/openers.h"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace Quorvel::Dravik::Command {

using SourcePtr = boost::shared_ptr<Adt::BulkDef::SourceDef const>;

/// What an output holds.
struct OutputLayout {
    std::vector<int> shape;   ///< samples per axis, one to four
    std::string sampleType;   ///< see sampleTypeNamed
    std::vector<int> chunks;  ///< samples per axis; empty: as the format chooses
    Adt::BulkView::DataInfo info;
};

struct Format {
    std::string name;
    std::vector<std::string> extensions;  ///< of outputs: ".nc"
    void (*enter)(Adt::BulkView::Openers& openers);
    bool (*isOf)(Adt::BulkDef::SourceDef const& source);
    /// The variables of a file; null where it has one without a name.
    std::vector<std::string> (*variables)(std::filesystem::path const& path);
    /// Makes a file and tells how it is opened for writing.
    SourcePtr (*create)(std::filesystem::path const& path, OutputLayout const& layout);
    /// Whether the file alone does not tell what lies in it.
    bool needsDefinition;
};

std::span<Format const> formats();

/// The format of a source that a file was recognised as; null for others.
Format const* formatOf(Adt::BulkDef::SourceDef const& source);

/// The format that a name ends in, or that `wanted` names if it is not empty.
/// @throws std::runtime_error that names those there are
Format const& formatFor(std::filesystem::path const& path, std::string const& wanted);

}  // namespace Quorvel::Dravik::Command
