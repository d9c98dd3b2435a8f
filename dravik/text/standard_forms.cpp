// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/constant_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/cache_def.h"
#include "dravik/adt/bulkdef/transform/concat_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/missing_value_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/bulkdef/view/array_map_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/axes_view_def.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/inverse_array_view_def.h"
#include "dravik/text/detail/form_table.h"
#include "dravik/text/text_exception.h"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>

namespace Quorvel::Dravik::Text::Detail {

namespace {

using Adt::ExtentImpl;
using Adt::ExtentK;
using Adt::FixedVector;
using Adt::BulkDef::Entity::DerivedEntityDef;
using Adt::BulkDef::Entity::SourceEntityDef;
using Adt::BulkDef::Source::BulkFileDef;
using Adt::BulkDef::Source::ConstantDef;
using Adt::BulkDef::Source::ProjectItemDef;
using Adt::BulkDef::Transform::CacheDef;
using Adt::BulkDef::Transform::ConcatDef;
using Adt::BulkDef::Transform::ConvertDef;
using Adt::BulkDef::Transform::DecimateDef;
using Adt::BulkDef::Transform::MinMaxDef;
using Adt::BulkDef::Transform::MissingValueDef;
using Adt::BulkDef::Transform::MultiresDef;
using Adt::BulkDef::View::ArrayMapDef;
using Adt::BulkDef::View::ArraySubsetDef;
using Adt::BulkDef::View::ArrayViewDef;
using Adt::BulkDef::View::AxesViewDef;
using Adt::BulkDef::View::CompleteViewDef;
using Inverse = ArrayViewDef::InverseArrayViewDef;

void requireSize(Node const& node, std::size_t size) {
    if (std::size_t const elements = node.elements().size(); elements != size) {
        throw TextException(node, "has " + std::to_string(elements) + " elements, not " + std::to_string(size));
    }
}

template <int N>
FixedVector<N, int> readNumbers(Node const& node) {
    requireSize(node, N);
    FixedVector<N, int> numbers;
    for (int axis = 0; axis < N; ++axis) {
        numbers[axis] = node.at(static_cast<std::size_t>(axis)).as<int>();
    }
    return numbers;
}

std::string readString(Node const& node, char const* key) {
    return node.at(key).as<std::string>();
}

Node writeFormat(BulkFileDef::FileFormat format) {
    std::string const& name = BulkFileDef::getFileFormatString(format);
    bool const isNamed = format == BulkFileDef::FILEFORMAT_UNKNOWN || BulkFileDef::getFileFormat(name) != 0;
    return isNamed ? Node(name) : Node(static_cast<int>(format));
}

BulkFileDef::FileFormat readFormat(Node const& node) {
    if (!node.isString()) {
        return static_cast<BulkFileDef::FileFormat>(node.as<int>());
    }
    auto const name = node.as<std::string>();
    auto const format = BulkFileDef::getFileFormat(name);
    return BulkFileDef::getFileFormatString(format) == name ? format
                                                            : throw TextException(node, "names no format of files");
}

// What equality looks at: empty axes are all alike, and the step of a single index does not matter.
Node writeAxis(ExtentImpl<int> const& axis) {
    auto const [origin, step, count] = axis.isEmpty() ? ExtentImpl<int>() : axis;
    return Node::MakeArray(FixedVector<3, int>(origin, count == 1 ? 1 : step, count));
}

ExtentImpl<int> readAxis(Node const& node) {
    auto const numbers = readNumbers<3>(node);
    return {numbers[0], numbers[1], numbers[2]};
}

// A map tells the axes that it does not restrict.
constexpr ExtentImpl<int> kWhole = ArrayMapDef<1>::kWhole;

template <int N, class WriteAxis>
Node writeAxes(ExtentK<N, int> const& axes, WriteAxis const& write) {
    Node array = Node::MakeArray();
    for (int axis = 0; axis < N; ++axis) {
        array.append(write(axes[axis]));
    }
    return array;
}

template <int N, class ReadAxis>
ExtentK<N, int> readAxes(Node const& node, ReadAxis const& read) {
    requireSize(node, N);
    ExtentK<N, int> axes;
    for (int axis = 0; axis < N; ++axis) {
        axes[axis] = read(node.at(static_cast<std::size_t>(axis)));
    }
    return axes;
}

// What `make` makes for as many axes as `node` has elements.
template <class Make>
boost::shared_ptr<ViewDef const> ofAsManyAxes(Node const& node, Make const& make) {
    switch (node.elements().size()) {
    case 1:
        return make.template operator()<1>();
    case 2:
        return make.template operator()<2>();
    case 3:
        return make.template operator()<3>();
    case 4:
        return make.template operator()<4>();
    default:
        throw TextException(node, "has " + std::to_string(node.size()) + " elements, not 1 to 4");
    }
}

Node writeDerived(DerivedEntityDef const& def, DefinitionWriter& writer) {
    Node inputs = Node::MakeArray();
    for (unsigned int slot = 0; slot < def.numInputs(); ++slot) {
        auto const input = def.getInputPtr(slot);
        inputs.append(input != nullptr ? writer.write(*input) : Node());
    }
    return Node().set("inputs", std::move(inputs)).set("transform", writer.write(def.transform()));
}

boost::shared_ptr<EntityDef const> readDerived(Node const& node, DefinitionReader& reader) {
    auto const transform = reader.transform(node.at("transform"));
    Node const& inputs = node.at("inputs");
    requireSize(inputs, transform->numInputs());
    auto const def = boost::make_shared<DerivedEntityDef>(*transform);
    unsigned int slot = 0;
    for (Node const& input : inputs.elements()) {
        if (!input.isNull()) {
            def->setInput(slot, *reader.entity(input));
        }
        ++slot;
    }
    return def;
}

void addEntities(Forms& forms) {
    forms.add<SourceEntityDef>(
        "SourceEntity",
        [](SourceEntityDef const& def, DefinitionWriter& writer) {
            return Node().set("source", writer.write(def.source()));
        },
        [](Node const& node, DefinitionReader& reader) {
            return boost::make_shared<SourceEntityDef const>(*reader.source(node.at("source")));
        });
    forms.add<DerivedEntityDef>("DerivedEntity", writeDerived, readDerived);
}

Node writeItem(ProjectItemDef const& def, DefinitionWriter&) {
    // As a clone has them: no scale is 1, no offset is 0.
    return Node()
        .set("datastoreId", def.datastoreId())
        .set("datastoreType", def.datastoreType())
        .set("itemId", def.itemId())
        .set("offset", def.bulkOffset().empty() ? "0" : def.bulkOffset())
        .set("parentId", def.parentId())
        .set("scale", def.bulkScalar().empty() ? "1" : def.bulkScalar());
}

boost::shared_ptr<SourceDef const> readItem(Node const& node, DefinitionReader&) {
    return boost::make_shared<ProjectItemDef const>(
        readString(node, "datastoreType"), readString(node, "datastoreId"), readString(node, "parentId"),
        readString(node, "itemId"), readString(node, "scale"), readString(node, "offset"));
}

void addSources(Forms& forms) {
    forms.add<BulkFileDef>(
        "BulkFile",
        [](BulkFileDef const& def, DefinitionWriter&) {
            return Node().set("format", writeFormat(def.fileFormat())).set("path", def.fileName());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<BulkFileDef const>(readString(node, "path"), readFormat(node.at("format")));
        });
    forms.add<ProjectItemDef>("ProjectItem", writeItem, readItem);
    forms.add<ConstantDef>(
        "Constant",
        [](ConstantDef const& def, DefinitionWriter&) {
            return Node()
                .set("sampleType", def.sampleType())
                .set("size", Node::MakeArray(def.size()))
                .set("value", def.value());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<ConstantDef const>(
                readNumbers<4>(node.at("size")), readString(node, "sampleType"), node.at("value").as<double>());
        });
}

void addSamplings(Forms& forms) {
    forms.add<ConcatDef>(
        "Concat",
        [](ConcatDef const& def, DefinitionWriter&) {
            return Node().set("axis", def.axis()).set("numInputs", def.numInputs());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<ConcatDef const>(
                node.at("numInputs").as<unsigned int>(), node.at("axis").as<int>());
        });
    forms.add<DecimateDef>(
        "Decimate",
        [](DecimateDef const& def, DefinitionWriter&) {
            return Node()
                .set("decimation", Node::MakeArray(def.getDecimation()))
                .set("offset", Node::MakeArray(def.getOffset()));
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<DecimateDef const>(
                readNumbers<4>(node.at("decimation")), readNumbers<4>(node.at("offset")));
        });
    forms.add<MinMaxDef>(
        "MinMax",
        [](MinMaxDef const& def, DefinitionWriter&) {
            return Node().set("binSize", Node::MakeArray(def.getBinSize()));
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<MinMaxDef const>(readNumbers<3>(node.at("binSize")));
        });
    forms.add<MultiresDef>(
        "Multires",
        [](MultiresDef const& def, DefinitionWriter&) {
            return Node().set("factor", def.getFactor()).set("method", def.getName());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<MultiresDef const>(node.at("factor").as<int>(), readString(node, "method"));
        });
}

void addValueTransforms(Forms& forms) {
    forms.add<CacheDef>(
        "Cache", [](CacheDef const& def, DefinitionWriter&) { return Node().set("sampleBudget", def.sampleBudget()); },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<CacheDef const>(node.at("sampleBudget").as<int>());
        });
    forms.add<ConvertDef>(
        "Convert",
        [](ConvertDef const& def, DefinitionWriter&) {
            return Node().set("offset", def.offset()).set("sampleType", def.sampleType()).set("scale", def.scale());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<ConvertDef const>(
                readString(node, "sampleType"), node.at("scale").as<double>(), node.at("offset").as<double>());
        });
}

void addMissingValues(Forms& forms) {
    forms.add<MissingValueDef>(
        "MissingValue",
        [](MissingValueDef const& def, DefinitionWriter&) {
            return Node().set("highest", def.highest()).set("lowest", def.lowest());
        },
        [](Node const& node, DefinitionReader&) {
            return boost::make_shared<MissingValueDef const>(
                node.at("lowest").as<double>(), node.at("highest").as<double>());
        });
}

void addViews(Forms& forms) {
    forms.add<CompleteViewDef>(
        "CompleteView", [](CompleteViewDef const&, DefinitionWriter&) { return Node::MakeObject(); },
        [](Node const&, DefinitionReader&) { return CompleteViewDef::Instance(); });
    forms.add<Inverse>(
        "InverseArrayView",
        [](Inverse const& def, DefinitionWriter& writer) { return Node().set("view", writer.write(*def.viewPtr())); },
        [](Node const& node, DefinitionReader& reader) {
            auto const view = ArrayViewDef::Cast(reader.view(node.at("view")));
            return view != nullptr ? boost::make_shared<Inverse const>(*view)
                                   : throw TextException(node.at("view"), "is no array view and has no inverse");
        });
}

void addArrayViews(Forms& forms) {
    forms.add<ArraySubsetDef<1>, ArraySubsetDef<2>, ArraySubsetDef<3>, ArraySubsetDef<4>>(
        "ArraySubset",
        []<int N>(ArraySubsetDef<N> const& def, DefinitionWriter&) {
            return Node().set("axes", writeAxes(def.subset(), writeAxis));
        },
        [](Node const& node, DefinitionReader&) {
            Node const& axes = node.at("axes");
            return ofAsManyAxes(axes, [&]<int N>() -> boost::shared_ptr<ViewDef const> {
                return boost::make_shared<ArraySubsetDef<N> const>(readAxes<N>(axes, readAxis));
            });
        });
    forms.add<AxesViewDef<1>, AxesViewDef<2>, AxesViewDef<3>, AxesViewDef<4>>(
        "AxesView",
        []<int N>(AxesViewDef<N> const& def, DefinitionWriter&) {
            return Node().set("order", Node::MakeArray(def.order()));
        },
        [](Node const& node, DefinitionReader&) {
            Node const& order = node.at("order");
            return ofAsManyAxes(order, [&]<int N>() -> boost::shared_ptr<ViewDef const> {
                return boost::make_shared<AxesViewDef<N> const>(readNumbers<N>(order));
            });
        });
    forms.add<ArrayMapDef<1>, ArrayMapDef<2>, ArrayMapDef<3>, ArrayMapDef<4>>(
        "ArrayMap",
        []<int N>(ArrayMapDef<N> const& def, DefinitionWriter&) {
            auto const write = [](ExtentImpl<int> const& axis) { return axis == kWhole ? Node() : writeAxis(axis); };
            return Node().set("axes", writeAxes(def.subset(), write)).set("order", Node::MakeArray(def.order()));
        },
        [](Node const& node, DefinitionReader&) {
            auto const read = [](Node const& axis) { return axis.isNull() ? kWhole : readAxis(axis); };
            Node const& order = node.at("order");
            return ofAsManyAxes(order, [&]<int N>() -> boost::shared_ptr<ViewDef const> {
                return boost::make_shared<ArrayMapDef<N> const>(
                    readNumbers<N>(order), readAxes<N>(node.at("axes"), read));
            });
        });
}

}  // namespace

void addStandardForms(Forms& forms) {
    addEntities(forms);
    addSources(forms);
    addSamplings(forms);
    addValueTransforms(forms);
    addMissingValues(forms);
    addViews(forms);
    addArrayViews(forms);
}

}  // namespace Quorvel::Dravik::Text::Detail
