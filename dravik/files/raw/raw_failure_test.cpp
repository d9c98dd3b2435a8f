// SPDX-License-Identifier: Apache-2.0
// Definitions as text, openers and a file's samples while memory fails: nothing leaks, no descriptor stays open, and
// the same call works again.

#include "dravik/adt/bulkdef/entity/derived_entity_def.h"
#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/transform/convert_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/brick_pool.h"
#include "dravik/adt/core/shared_array.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/files/raw/raw_file.h"
#include "dravik/text/definition_text.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace Quorvel::Dravik::Files {
namespace {

using Adt::Testing::Fails;
using Box = Adt::OpenEndedRange<4, int>;

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// A file of 2 x 3 x 4 numbers of 16 bits in the other byte order, shown as float, by its text.
struct Scene {
    Scene() {
        std::ofstream file(path, std::ios::binary);
        for (char number = 0; number < 24; ++number) {
            file.write(std::array{'\0', number}.data(), 2);
        }
        file.close();
        RawFileDef const def(path, {{2, 3, 4}, "int16", RawLayout::ByteOrder::Big, 0, {}}, true);
        text = Text::toText(Adt::BulkDef::Entity::DerivedEntityDef(
            Adt::BulkDef::Transform::ConvertDef("float32", 1, 0), Adt::BulkDef::Entity::SourceEntityDef(def)));
        descriptors = openDescriptors();
    }
    ~Scene() { std::filesystem::remove(path); }

    std::unique_ptr<Adt::BulkView::IBufferAccessor> opened() const {
        Adt::BulkView::Openers openers(std::make_shared<Adt::BulkView::BrickPool>(1000));
        registerRaw(openers);
        return openers.open(*Text::entityFromText(text)).chain;
    }
    float& sample(int at) { return reinterpret_cast<float*>(array.data())[at]; }
    Adt::ExtentK<4, int> whole() const { return Adt::ExtentK<4, int>(array.range()); }

    std::filesystem::path path =
        std::filesystem::path(testing::TempDir()) / ("raw_failure." + std::to_string(getpid()));
    std::string text;
    Adt::SharedArray<4> array = Adt::SharedArray<4>::Make<float>(Box::OfSize({2, 3, 4, 1}));
    std::ptrdiff_t descriptors = 0;
};

void leavesNothingOpen(Scene& scene, bool) {
    EXPECT_EQ(openDescriptors(), scene.descriptors);
}

constexpr Adt::Testing::FailureScenario<Scene> kScenarios[] = {
    {"text to definition to text", Fails::kAllocations,
     [](Scene& s) { EXPECT_EQ(Text::toText(*Text::entityFromText(s.text)), s.text); }},
    {"opening and reading", Fails::kAllocations,
     [](Scene& s) {
         readRegion(*s.opened(), s.whole(), s.array);
         EXPECT_EQ(s.sample(17), 17);
     },
     leavesNothingOpen},
    {"writing and flushing", Fails::kAllocations,
     [](Scene& s) {
         auto const chain = s.opened();
         std::fill_n(&s.sample(0), 24, 500.0f);
         writeRegion(*chain, s.whole(), s.array);
         flush(*chain);
         std::fill_n(&s.sample(0), 24, 0.0f);
         readRegion(*s.opened(), s.whole(), s.array);
         EXPECT_EQ(s.sample(23), 500);
     },
     leavesNothingOpen},
};

TEST(RawFile, SurvivesEveryFailedAllocation) {
    Adt::Testing::failInEach(kScenarios);
}

}  // namespace
}  // namespace Quorvel::Dravik::Files
