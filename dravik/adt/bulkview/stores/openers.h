// SPDX-License-Identifier: Apache-2.0
#pragma once

// Openers: from a definition to the chain of accessors that it describes. Threads: any, on every member.

#include "dravik/adt/bulkdef/entity_def.h"
#include "dravik/adt/bulkdef/source_def.h"
#include "dravik/adt/bulkdef/transform_def.h"
#include "dravik/adt/bulkdef/view_def.h"
#include "dravik/adt/bulkview/buffer_accessor.h"
#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/bulkview/stores/data_info.h"
#include "dravik/adt/export.h"

#include <boost/shared_ptr.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {

/// A chain, and what is known about its samples.
struct OpenedData {
    std::unique_ptr<IBufferAccessor> chain;
    DataInfo info;
};

/// Knows, by the class of a definition, what opens it, and by a look at a file, which definition describes it.
///
/// A plain object: a program may have several, each with the pool that its stores share. What is added last for a class
/// is in force. No lock is held while what was added runs.
///
///     Openers openers;
///     openers.addSource<RawFileDef>([](RawFileDef const& file, Openers const& its) { … });
///     OpenedData data = openers.open(SourceEntityDef(file), subset);
class DRAVIK_ADT_EXPORT Openers {
  public:
    template <class Def>
    using SourceOpener = std::function<OpenedData(Def const& source, Openers const& openers)>;
    /// Gets the inputs in the order of their slots.
    template <class Def>
    using TransformOpener =
        std::function<OpenedData(Def const& transform, std::vector<OpenedData> inputs, Openers const& openers)>;
    /// The definition of one variable in a file, an empty `variable` for the only or main one; null where the file is
    /// of another format.
    /// @throws what tells why a file of this format cannot be opened
    using Recogniser = std::function<boost::shared_ptr<BulkDef::SourceDef const>(
        std::filesystem::path const& path, std::string const& variable)>;

    /// With a pool of its own, whose budget is the environment variable DRAVIK_ADT_POOL_BYTES, or 1 GiB without it.
    /// Constants are opened, and decimations, conversions of samples, caches, joins and missing values
    /// computed, from the beginning.
    Openers();
    /// @throws std::invalid_argument for a null pool
    explicit Openers(std::shared_ptr<BrickPool> pool);
    Openers(Openers const&) = delete;
    Openers& operator=(Openers const&) = delete;
    ~Openers();

    /// The process's own, which companions fill when they are loaded. Never destroyed.
    static Openers& standard();

    /// Opens sources of class Def, not those of classes derived from it, by `open`.
    template <class Def>
    void addSource(SourceOpener<Def> open) {
        add(typeid(Def), AnySource([opener = std::move(open)](BulkDef::SourceDef const& def, Openers const& openers) {
                return opener(static_cast<Def const&>(def), openers);
            }));
    }
    /// Computes transforms of class Def by `open`.
    template <class Def>
    void addTransform(TransformOpener<Def> open) {
        add(typeid(Def),
            AnyTransform([opener = std::move(open)](
                             BulkDef::TransformDef const& def, std::vector<OpenedData> inputs, Openers const& openers) {
                return opener(static_cast<Def const&>(def), std::move(inputs), openers);
            }));
    }
    /// Recognises files of one more format. `name` tells it in messages: "netCDF".
    void addFormat(std::string name, Recogniser recognise);

    /// The chain of `entity`, with nothing read but what its openers look at.
    /// @throws Exceptions::NotSupportedException for a class without an opener, with its name
    /// @throws std::invalid_argument for a derived entity with an empty slot
    /// @throws what the openers throw
    OpenedData open(BulkDef::EntityDef const& entity) const;
    /// What `transform` makes of its inputs.
    /// @throws as open does, std::invalid_argument for another number of inputs than the transform has
    OpenedData transformed(BulkDef::TransformDef const& transform, std::vector<OpenedData> inputs) const;
    /// What `view` shows of it, names and coordinates as well.
    /// @throws as Filters::FilterFactory::MakeView does
    OpenedData open(BulkDef::EntityDef const& entity, BulkDef::ViewDef const& view) const;

    /// The source that the file at `path` is, by asking the formats in the order in which they were added.
    /// @throws Exceptions::NotSupportedException for a file of no format known, with those that are
    boost::shared_ptr<BulkDef::SourceDef const> sourceAt(
        std::filesystem::path const& path, std::string const& variable = {}) const;

    /// Where stores that are opened here keep their bricks. Never null.
    std::shared_ptr<BrickPool> const& pool() const noexcept { return pool_; }

  private:
    using AnySource = std::function<OpenedData(BulkDef::SourceDef const&, Openers const&)>;
    using AnyTransform =
        std::function<OpenedData(BulkDef::TransformDef const&, std::vector<OpenedData>, Openers const&)>;

    void add(std::type_info const& type, AnySource open);
    void add(std::type_info const& type, AnyTransform open);

    std::shared_ptr<BrickPool> pool_;
    mutable std::mutex mutex_;  // of all below
    std::unordered_map<std::type_index, AnySource> sources_;
    std::unordered_map<std::type_index, AnyTransform> transforms_;
    std::vector<std::pair<std::string, Recogniser>> formats_;
};

/// What is known about what `view` shows of a data set of size `size`: axes as the view orders them, coordinates of the
/// indices that it shows.
DRAVIK_ADT_EXPORT DataInfo
infoOfView(DataInfo const& info, FixedVector<4, int> const& size, BulkDef::ViewDef const& view);

}  // namespace Quorvel::Dravik::Adt::BulkView
