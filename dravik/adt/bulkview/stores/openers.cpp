// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkview/stores/openers.h"

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/transform/cache_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkview/filters/cache_filter.h"
#include "dravik/adt/bulkview/filters/filter_factory.h"
#include "dravik/adt/bulkview/filters/value_convert_filter.h"
#include "dravik/adt/bulkview/regions/access_traits.h"
#include "dravik/adt/bulkview/stores/detail/computed_data.h"
#include "dravik/adt/converters/sample_type_name.h"
#include "dravik/adt/converters/type_register.h"
#include "dravik/adt/converters/value_converter_factory.h"
#include "dravik/adt/exceptions/simple_exception.h"
#include "dravik/adt/platform/environment.h"
#include "dravik/adt/platform/type_name.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <charconv>
#include <optional>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView {

namespace {

using BulkDef::View::ArrayViewDef;

std::int64_t byteBudgetOfProcess() {
    constexpr std::int64_t kUsual = std::int64_t{1} << 30;
    std::string const text = Platform::environmentValue("DRAVIK_ADT_POOL_BYTES").value_or("");
    std::int64_t bytes = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
    return error == std::errc() && end == text.data() + text.size() && bytes >= 0 ? bytes : kUsual;
}

[[noreturn]] void throwUnknown(std::type_info const& type, char const* verb) {
    throw Exceptions::NotSupportedException(
        "Openers", "nobody " + std::string(verb) + " definitions of class " + Platform::readableTypeName(type) + ".");
}

// A decimated data set is a subset of its input.
OpenedData decimated(BulkDef::Transform::DecimateDef const& def, std::vector<OpenedData> inputs) {
    OpenedData& input = inputs.front();
    auto const size = input.chain->getSize();
    ExtentK<4, int> subset;
    for (int axis = 0; axis < 4; ++axis) {
        int const step = def.getDecimation()[axis], first = def.getOffset()[axis];
        if (step < 1 || first < 0) {
            throw std::invalid_argument(
                "[Openers::open] Invalid argument: a decimation by " + std::to_string(step) + " from index " +
                std::to_string(first) + ".");
        }
        subset[axis] = {first, step, first < size[axis] ? (size[axis] - first - 1) / step + 1 : 0};
    }
    BulkDef::View::ArraySubsetDef<4> const view(subset);
    DataInfo info = infoOfView(input.info, size, view);
    return {Filters::FilterFactory::MakeView(std::move(input.chain), view), std::move(info)};
}

// scale * x + offset, both steps in double: for types of which a float does not hold every number.
class ScaledDoubles final : public IValueConverter {
  public:
    explicit ScaledDoubles(ScaleOffset const& transform) : transform_(transform) {}

    std::type_info const& getInputType() const override { return typeid(double); }
    std::type_info const& getOutputType() const override { return typeid(double); }
    void convert(void const* in, void* out) const override { convertStrided(in, 0, 0, out, 0, 0, 1); }
    void convertContiguous(void const* in, int inIndex, void* out, int outIndex, int count) const override {
        convertStrided(in, inIndex, 1, out, outIndex, 1, count);
    }
    void convertStrided(
        void const* in, int inIndex, int inStride, void* out, int outIndex, int outStride, int count) const override {
        auto const* const from = static_cast<double const*>(in) + inIndex;
        auto* const to = static_cast<double*>(out) + outIndex;
        for (std::int64_t k = 0; k < count; ++k) {
            to[k * outStride] = transform_.convertDouble(from[k * inStride]);
        }
    }

  private:
    ScaleOffset transform_;
};

// By way of double where there is no converter from one type to the other.
IValueConverter::ConstPtr converterBetween(
    std::type_info const& from, std::type_info const& to, ScaleOffset const& transform) {
    using Converters::ValueConverterFactory;
    try {
        return ValueConverterFactory::getTypeConverter(from, to, transform, /*copyIfSame=*/false);
    } catch (Exceptions::NotImplementedException const&) {
        return ValueConverterFactory::appendTypeConverter(
            ValueConverterFactory::prependTypeConverter(from, boost::make_shared<ScaledDoubles const>(transform)),
            /*withInverse=*/false, to);
    }
}

OpenedData converted(BulkDef::Transform::ConvertDef const& def, std::vector<OpenedData> inputs) {
    OpenedData& input = inputs.front();
    std::type_info const& from = *traitsOf(*input.chain).sampleType;
    std::type_info const* const to = sampleTypeNamed(def.sampleType());
    if (to == nullptr || from == typeid(void)) {
        throw std::invalid_argument(
            "[Openers::open] Invalid argument: " +
            (to == nullptr ? "no sample type is named \"" + def.sampleType() + "\"."
                           : std::string("samples of an unknown type cannot be converted.")));
    }
    ScaleOffset const forward(def.scale(), def.offset());
    auto const there = converterBetween(from, *to, forward);
    IValueConverter::ConstPtr back;
    try {
        back = converterBetween(*to, from, forward.getInverse());
    } catch (Exceptions::NotImplementedException const&) {
        // Such samples can be read alone.
    }
    if (def.scale() != 1 || def.offset() != 0) {
        input.info.missingValue.reset();
    }
    int const byteSize = TypeRegister::sizeofTypeInBits(*to) / 8;
    input.chain = Filters::ValueConvertFilter::Apply(std::move(input.chain), byteSize, there, back);
    return std::move(input);
}

OpenedData cached(BulkDef::Transform::CacheDef const& def, std::vector<OpenedData> inputs) {
    constexpr int kNever = Filters::CacheFilter::kNever;
    OpenedData& input = inputs.front();
    input.chain = Filters::CacheFilter::Apply(std::move(input.chain), def.sampleBudget(), kNever, kNever);
    return std::move(input);
}

}  // namespace

Openers::Openers() : Openers(std::make_shared<BrickPool>(byteBudgetOfProcess())) {}

Openers::Openers(std::shared_ptr<BrickPool> pool) : pool_(std::move(pool)) {
    if (pool_ == nullptr) {
        throw std::invalid_argument("[Openers] Invalid argument: pool is null.");
    }
    using Inputs = std::vector<OpenedData>;
    addTransform<BulkDef::Transform::DecimateDef>(
        [](auto const& def, Inputs inputs, Openers const&) { return decimated(def, std::move(inputs)); });
    addTransform<BulkDef::Transform::ConvertDef>(
        [](auto const& def, Inputs inputs, Openers const&) { return converted(def, std::move(inputs)); });
    addTransform<BulkDef::Transform::CacheDef>(
        [](auto const& def, Inputs inputs, Openers const&) { return cached(def, std::move(inputs)); });
    addSource<BulkDef::Source::ConstantDef>([](auto const& def, Openers const&) { return Detail::constantData(def); });
    addTransform<BulkDef::Transform::ConcatDef>(
        [](BulkDef::Transform::ConcatDef const& def, Inputs inputs, Openers const&) {
            return Detail::joinedData(def, std::move(inputs));
        });
    addTransform<BulkDef::Transform::MultiresDef>([](auto const& def, Inputs inputs, Openers const& its) {
        return Detail::coarserData(def, std::move(inputs.front()), its);
    });
    addTransform<BulkDef::Transform::MissingValueDef>([](auto const& def, Inputs inputs, Openers const&) {
        return Detail::dataWithoutMissing(def, std::move(inputs.front()));
    });
}

Openers::~Openers() = default;

Openers& Openers::standard() {
    static Openers& openers = *new Openers();
    return openers;
}

void Openers::add(std::type_info const& type, AnySource open) {
    std::lock_guard const lock(mutex_);
    sources_.insert_or_assign(type, std::move(open));
}

void Openers::add(std::type_info const& type, AnyTransform open) {
    std::lock_guard const lock(mutex_);
    transforms_.insert_or_assign(type, std::move(open));
}

void Openers::addFormat(std::string name, Recogniser recognise) {
    std::lock_guard const lock(mutex_);
    formats_.emplace_back(std::move(name), std::move(recognise));
}

namespace {

// A copy of what was added for the class of `def`; empty where nothing was.
template <class Table, class Def>
typename Table::mapped_type openerOf(Table const& table, std::mutex& mutex, Def const& def) {
    std::lock_guard const lock(mutex);
    auto const entry = table.find(typeid(def));
    return entry == table.end() ? nullptr : entry->second;
}

}  // namespace

OpenedData Openers::open(BulkDef::EntityDef const& entity) const {
    if (auto const* const sourceEntity = BulkDef::Entity::SourceEntityDef::Cast(&entity)) {
        BulkDef::SourceDef const& source = sourceEntity->source();
        auto const opener = openerOf(sources_, mutex_, source);
        return opener ? opener(source, *this) : (throwUnknown(typeid(source), "opens"), OpenedData());
    }
    auto const* const derived = BulkDef::Entity::DerivedEntityDef::Cast(&entity);
    if (derived == nullptr) {
        throwUnknown(typeid(entity), "opens");
    }
    BulkDef::TransformDef const& transform = derived->transform();
    std::vector<OpenedData> inputs;
    for (unsigned slot = 0; slot < derived->numInputs(); ++slot) {
        auto const input = derived->getInputPtr(slot);
        if (input == nullptr) {
            throw std::invalid_argument(
                "[Openers::open] Invalid argument: input " + std::to_string(slot) + " of " +
                Platform::readableTypeName(typeid(transform)) + " is not set.");
        }
        inputs.push_back(open(*input));
    }
    return transformed(transform, std::move(inputs));
}

OpenedData Openers::transformed(BulkDef::TransformDef const& transform, std::vector<OpenedData> inputs) const {
    auto const opener = openerOf(transforms_, mutex_, transform);
    if (!opener) {
        throwUnknown(typeid(transform), "computes");
    }
    if (inputs.size() != transform.numInputs()) {
        throw std::invalid_argument(
            "[Openers::transformed] Invalid argument: " + std::to_string(inputs.size()) + " inputs for " +
            std::to_string(transform.numInputs()) + ".");
    }
    return opener(transform, std::move(inputs), *this);
}

OpenedData Openers::open(BulkDef::EntityDef const& entity, BulkDef::ViewDef const& view) const {
    OpenedData opened = open(entity);
    DataInfo info = infoOfView(opened.info, opened.chain->getSize(), view);
    return {Filters::FilterFactory::MakeView(std::move(opened.chain), view), std::move(info)};
}

boost::shared_ptr<BulkDef::SourceDef const> Openers::sourceAt(
    std::filesystem::path const& path, std::string const& variable) const {
    std::unique_lock lock(mutex_);
    auto const formats = formats_;
    lock.unlock();
    std::string names;
    for (auto const& [name, recognise] : formats) {
        if (auto source = recognise(path, variable)) {
            return source;
        }
        names += (names.empty() ? "" : ", ") + name;
    }
    throw Exceptions::NotSupportedException(
        "Openers",
        path.string() + " is a file of none of the formats known: " + (names.empty() ? "none" : names) + ".");
}

DataInfo infoOfView(DataInfo const& info, FixedVector<4, int> const& size, BulkDef::ViewDef const& view) {
    auto const* const arrayView = ArrayViewDef::Cast(&view);
    if (arrayView == nullptr) {
        return info;
    }
    DataInfo shown = info;
    for (int axis = 0; axis < 4; ++axis) {
        auto const [viewAxis, seen] = arrayView->targetToViewAxisExtent({axis, {0, 1, size[axis]}});
        if (viewAxis < 0 || viewAxis > 3) {
            continue;
        }
        DataAxis& target = shown.axes[static_cast<std::size_t>(viewAxis)];
        target = info.axes[static_cast<std::size_t>(axis)];
        auto const coordinates = std::move(target.coordinates);
        target.coordinates.clear();
        if (coordinates.size() != static_cast<std::size_t>(size[axis])) {
            continue;
        }
        auto const shownIndices = arrayView->viewToTargetAxisExtent({viewAxis, {0, 1, std::max(seen.count, 0)}}).second;
        for (int k = 0; k < shownIndices.count; ++k) {
            target.coordinates.push_back(coordinates[static_cast<std::size_t>(shownIndices.at(k))]);
        }
    }
    return shown;
}

}  // namespace Quorvel::Dravik::Adt::BulkView
