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

#include "dravik/adt/exceptions/not_implemented_exception.h"
#include "dravik/adt/exceptions/plain_exception.h"
#include "dravik/adt/testing/failure_loop.h"

#include <gtest/gtest.h>

#include <sstream>
#include <unordered_map>
#include <utility>

namespace Quorvel::Dravik::Adt::BulkDef {
namespace {

using namespace Entity;
using namespace Source;
using namespace Transform;
using namespace View;
using Testing::callOut;
using Testing::Fails;
using Testing::refused;

// A host's definition below `Base` that may fail in whatever it is asked.
template <class Root, class Base>
class Host : public Base, public IPrintable {
  public:
    int getHashCode() const override { return callOut("getHashCode"), 7; }
    void print(std::ostream& out) const override { callOut("print"), out << "Host"; }

  protected:
    bool compare(Root const& other) const override {
        return callOut("compare"), dynamic_cast<Host const*>(&other) != nullptr;
    }
};

struct HostSource : Host<SourceDef, SourceDef> {
    std::unique_ptr<SourceDef> makeClone() const override {
        return callOut("makeClone"), std::make_unique<HostSource>();
    }
};

struct HostTransform : Host<TransformDef, TransformDef> {
    unsigned int numInputs() const override { return callOut("numInputs"), 3; }
    unsigned int numOutputs() const override { return 1; }
    std::unique_ptr<TransformDef> makeClone() const override {
        return callOut("makeClone"), std::make_unique<HostTransform>();
    }
};

// Shows the target moved by ten.
struct HostView : Host<ViewDef, ArrayViewDef> {
    AxisExtent viewToTargetAxisExtent(AxisExtent const& axis) const override { return moved(axis, 10); }
    AxisExtent targetToViewAxisExtent(AxisExtent const& axis) const override { return moved(axis, -10); }
    std::unique_ptr<ViewDef> makeClone() const override { return callOut("makeClone"), std::make_unique<HostView>(); }

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

    template <class Use>
    void forEach(Use use) {
        use(file), use(item), use(decimate), use(minMax), use(multires), use(entity), use(derived), use(complete);
        use(subset), use(static_cast<ViewDef const&>(host)), use(*inverse);
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
    boost::shared_ptr<ArrayViewDef const> inverse = subset.inverse();
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
    {"cloning each kind", Fails::kBoth, [](Scene& s) { s.forEach([](auto const& def) { def.clone(); }); }},
    {"printing each kind", Fails::kCalls,
     [](Scene& s) {
         Testing::HostStream out;
         s.forEach([&](auto const& def) { out << def; });
         out << s.converter;
     }},
    {"comparing and hashing each kind", Fails::kCalls,
     [](Scene& s) { s.forEach([](auto const& def) { EXPECT_TRUE(def.equals(def) && def.getHashCode() != 0); }); }},
    {"asking each kind", Fails::kNothing,
     [](Scene& s) {
         ProjectItemDef const& item = s.item;
         EXPECT_TRUE(item.datastoreType() == s.item.datastoreType() && item.datastoreId() == s.item.datastoreId());
         EXPECT_TRUE(item.parentId() == s.item.parentId() && item.itemId() == s.item.itemId());
         EXPECT_TRUE(item.bulkScalar() == s.item.bulkScalar() && item.bulkOffset() == s.item.bulkOffset());
         EXPECT_EQ(std::as_const(s.file).fileFormat(), s.file.fileFormat());
         EXPECT_EQ(BulkFileDef::getFileFormatString(s.file.fileFormat()).size(), 17u);
         EXPECT_NE(s.decimate.getDecimation(), s.decimate.getOffset());
         EXPECT_EQ(s.minMax.getBinSize()[1], s.multires.getFactor());
         EXPECT_EQ(&s.unary.transform(), s.unary.transformPtr().get());
         EXPECT_EQ(UnaryTransDef::Cast(&s.unary.transform())->numOutputs(), s.unary.numInputs());
         EXPECT_EQ(&s.entity.source(), s.entity.sourcePtr().get());
         s.subset.setSubset(Subset::Cast(&s.subset)->subset());
     }},
    {"assigning a file", Fails::kAllocations, assign<&Scene::file, &Scene::nextFile>,
     isAssigned<&Scene::file, &Scene::nextFile>},
    {"assigning an item", Fails::kAllocations, assign<&Scene::item, &Scene::nextItem>,
     isAssigned<&Scene::item, &Scene::nextItem>},
    {"assigning levels", Fails::kAllocations, assign<&Scene::multires, &Scene::nextMultires>,
     isAssigned<&Scene::multires, &Scene::nextMultires>},
    {"assigning an entity", Fails::kAllocations, assign<&Scene::unary, &Scene::derived>,
     isAssigned<&Scene::unary, &Scene::derived>},
    {"changing a file", Fails::kAllocations, [](Scene& s) { s.file.setFileName(name('g') + name('h')); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.file.fileName(), completed ? name('g') + name('h') : name('f')); }},
    {"setting an input", Fails::kBoth, [](Scene& s) { s.derived.setInput(1, s.entity); },
     [](Scene& s, bool completed) { EXPECT_EQ(s.derived.getInputPtr(1) != nullptr, completed); }},
    {"setting a source", Fails::kBoth,
     [](Scene& s) {
         auto const before = s.entity.sourcePtr();
         s.entity.setSource(s.source);
         EXPECT_NE(s.entity.sourcePtr(), before);
     },
     [](Scene& s, bool) { EXPECT_NE(s.entity.sourcePtr(), nullptr); }},
    {"refusing", Fails::kAllocations,
     [](Scene& s) {
         refused<Exceptions::PlainException>([&] { s.source.toString(); });
         refused<Exceptions::PlainException>([&] { s.derived.getInput(2); });
         refused<std::invalid_argument>([&] { s.derived.getInput(3); });
         refused<std::invalid_argument>([&] { s.derived.getInputPtr(3); });
         refused<std::invalid_argument>([&] { s.derived.setInput(3, s.entity); });
         refused<Exceptions::NotImplementedException>([&] { CompositeViewDef::difference(s.host, s.subset); });
         refused<std::invalid_argument>([] { Converter(boost::shared_ptr<ViewDef const>()); });
     }},
    {"finding by definition", Fails::kBoth,
     [](Scene& s) {
         using Key = boost::shared_ptr<EntityDef const>;
         std::unordered_map<Key, int, std::hash<Key>, EqualDefinitions> open;
         open.emplace(s.derived.clone(), 1);
         open.emplace(s.entity.clone(), 2);
         EXPECT_EQ(open.find(s.entity)->second, 2);
     }},
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
