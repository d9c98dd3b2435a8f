// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkdef/source/project_item_def.h"
#include "dravik/adt/bulkdef/transform/decimate_def.h"
#include "dravik/adt/bulkdef/transform/min_max_def.h"
#include "dravik/adt/bulkdef/transform/multires_def.h"
#include "dravik/adt/bulkdef/view/array_subset_def.h"
#include "dravik/adt/bulkdef/view/array_view_converter.h"
#include "dravik/adt/bulkdef/view/complete_view_def.h"
#include "dravik/adt/bulkdef/view/composite_view_def.h"

#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Quorvel::Dravik::Adt::BulkDef {
namespace {

using namespace Entity;
using namespace Source;
using namespace Transform;
using namespace View;
using Testing::callOut;
using Testing::Fails;

// A host's definition below `Base` that may fail in whatever it is asked.
template <class Self, class Root, class Base>
struct Host : Base, IPrintable {
    int getHashCode() const override { return 7; }
    void print(std::ostream& out) const override { out << "Host"; }
    bool compare(Root const& other) const override {
        return callOut("compare"), dynamic_cast<Self const*>(&other) != nullptr;
    }
    std::unique_ptr<Root> makeClone() const override { return callOut("makeClone"), std::make_unique<Self>(); }
};

struct HostSource : Host<HostSource, SourceDef, SourceDef> {};

struct HostTransform : Host<HostTransform, TransformDef, TransformDef> {
    unsigned int numInputs() const override { return callOut("numInputs"), 3; }
    unsigned int numOutputs() const override { return 1; }
};

// Shows the target moved by ten.
struct HostView : Host<HostView, ViewDef, ArrayViewDef> {
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override { return moved(axis, 10); }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return moved(axis, -10); }

  private:
    static AxisExtent moved(AxisExtent axis, int by) {
        callOut("map");
        axis.second.origin += axis.first < 2 && axis.second.count < 1000000 ? by : 0;
        return axis;
    }
};

std::string name(char what) {
    return std::string(40, what);
}

using Converter = ArrayViewConverter<2>;
using Subset = ArraySubsetDef<2>;

struct Scene {
    Scene() {
        derived.setInput(0, entity);
        set.add(Converter::Range{{20, 20}, {30, 25}});
        out = set;
    }

    BulkFileDef file{name('f'), BulkFileDef::FILEFORMAT_VIRSET};
    BulkFileDef nextFile{name('f') + "g", BulkFileDef::FILEFORMAT_OTHER};
    ProjectItemDef item{name('t'), name('d'), name('p'), name('i')};
    ProjectItemDef nextItem{name('a') + "b", name('c') + "d", name('e') + "f", name('g') + "h", name('i'), name('j')};
    DecimateDef decimate{{1, 2, 3, 4}, {}};
    MinMaxDef minMax{{1, 2, 3}};
    MultiresDef multires{2, name('m')}, nextMultires{7, name('n') + "o"};
    HostSource source;
    SourceEntityDef entity{source};
    DerivedEntityDef derived{HostTransform()}, unary{multires, entity};
    CompleteViewDef complete;
    Subset subset{{ExtentImpl<int>{1, 2, 5}, ExtentImpl<int>{9, -1, 10}}};
    HostView host;
    Converter converter{static_cast<ViewDef const&>(host)};
    Converter::Set set{Converter::Range{{0, 0}, {4, 4}}}, out;
    Converter::Array array{{{0, 0}, {4, 4}}, {4, 1}, nullptr, 0, typeid(int), 32};
};

std::string text(auto const& def) {
    std::ostringstream out;
    out << def;
    return out.str();
}

template <auto Def, auto Next>
void assign(Scene& scene) {
    scene.*Def = scene.*Next;
}
template <auto Def, auto Next>
void isAssigned(Scene& scene, bool completed) {
    EXPECT_EQ(text(scene.*Def), text(completed ? scene.*Next : Scene().*Def));
}

constexpr Testing::FailureScenario<Scene> kScenarios[] = {
    {"cloning each kind", Fails::kBoth,
     [](Scene& s) {
         auto const clone = [](auto const&... defs) { (defs.clone(), ...); };
         clone(s.file, s.item, s.decimate, s.minMax, s.multires, s.entity, s.derived, s.complete, s.subset, s.host);
         clone(*s.subset.inverse());
     }},
    {"assigning a file", Fails::kAllocations, assign<&Scene::file, &Scene::nextFile>,
     isAssigned<&Scene::file, &Scene::nextFile>},
    {"assigning an item", Fails::kAllocations, assign<&Scene::item, &Scene::nextItem>,
     isAssigned<&Scene::item, &Scene::nextItem>},
    {"assigning levels", Fails::kAllocations, assign<&Scene::multires, &Scene::nextMultires>,
     isAssigned<&Scene::multires, &Scene::nextMultires>},
    {"assigning an entity", Fails::kAllocations, assign<&Scene::unary, &Scene::derived>,
     isAssigned<&Scene::unary, &Scene::derived>},
    {"setting an input", Fails::kBoth, [](Scene& s) { s.derived.setInput(1, s.entity); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.derived.getInputPtr(1) != nullptr, completed); }},
    {"setting a source", Fails::kBoth,
     [](Scene& s) {
         auto const before = s.entity.sourcePtr();
         s.entity.setSource(s.source);
         EXPECT_NE(s.entity.sourcePtr(), before);
     },
     [](Scene& s, bool) { EXPECT_NE(s.entity.sourcePtr(), nullptr); }},
    {"composing views", Fails::kBoth,
     [](Scene& s) {
         auto const composed = CompositeViewDef::compose(s.subset, s.host);
         EXPECT_EQ(Subset::Cast(composed.get())->subset(), Subset::Cast(&s.subset)->subset());
         auto const inverse = CompositeViewDef::inverse(CompositeViewDef::inverse(s.host));
         EXPECT_TRUE(inverse->equals(*CompositeViewDef::difference(s.host, s.complete)));
     }},
    {"making converters", Fails::kBoth,
     [](Scene& s) {
         Converter const inverse(s.host, /*inverse=*/true);
         EXPECT_EQ(Converter(s.host.clone(), /*inverse=*/true), inverse);
         s.converter = inverse.inverse();
     },
     [](Scene& s, bool) { EXPECT_EQ(s.converter.convert(Converter::Range()).min, Converter::Range::Point(10, 10)); }},
    {"converting boxes and sets", Fails::kBoth,
     [](Scene& s) {
         Converter const inverse(s.subset, /*inverse=*/true);
         Converter::Range box = s.array.range();
         inverse.convertRegion(box, &box);
         EXPECT_EQ(inverse.convert(Converter::Extent(box)), inverse.convertExtents(Converter::Extent(box)));
         EXPECT_EQ(s.converter.convertExtents(Converter::Extent(s.array.range()))[1].origin, 10);
         EXPECT_EQ(s.converter.convert(s.set).size(), s.set.size());
         s.converter.convertRegion(s.set, &s.out);
     },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(s.out.contains({20, 20}));
         EXPECT_TRUE(!completed || s.out.isSubset(Converter::Range{{30, 30}, {40, 35}}));
     }},
    {"converting a set in place", Fails::kBoth, [](Scene& s) { s.converter.convertRegion(s.set, &s.set); },
     [](Scene& s, bool completed) {
         EXPECT_TRUE(s.set.contains({0, 0}) && s.set.contains({29, 24}));
         EXPECT_TRUE(!completed || s.set.contains({10, 10}));
     }},
    {"converting an array", Fails::kCalls,
     [](Scene& s) {
         s.converter.convertArray(s.array, &s.array);
         s.array.moveTo({0, 0});
         s.array.setBufferOffset(1);
     },
     [](Scene& s, bool completed) {
         EXPECT_EQ(s.array.range(), Converter::Range::OfSize({4, 4}));
         EXPECT_EQ(s.array.bufferOffset(), completed ? 1 : 0);
     }},
};

TEST(Definitions, SurviveEveryFailure) {
    Testing::failUntilMade("the names of file formats", [] {
        EXPECT_EQ(BulkFileDef::getFileFormat("FILEFORMAT_HALDOR"), BulkFileDef::FILEFORMAT_HALDOR);
    });
    Testing::failUntilMade(
        "the name of no format", [] { BulkFileDef::getFileFormatString(BulkFileDef::FileFormat(7)); });
    Testing::failUntilMade("the shared complete view", [] { EXPECT_NE(CompleteViewDef::Instance(), nullptr); });
    Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkDef
