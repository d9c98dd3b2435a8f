// SPDX-License-Identifier: Apache-2.0
// Every allocation and every call of the store failing once, and from there on: what is asked again is served, and what
// was written is not lost.

#include "dravik/adt/bulkdef/entity/source_entity_def.h"
#include "dravik/adt/bulkdef/source/bulk_file_def.h"
#include "dravik/adt/bulkview/regions/region.h"
#include "dravik/adt/bulkview/stores/openers.h"
#include "dravik/adt/bulkview/stores/store_accessor.h"
#include "dravik/adt/testing/failure_loop.h"
#include "dravik/adt/testing/memory_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace Quorvel::Dravik::Adt::BulkView {
namespace {

using BulkDef::Entity::SourceEntityDef;
using BulkDef::Source::BulkFileDef;
using Testing::Fails;
using Testing::MemoryStore;
using Index = FixedVector<4, int>;

// Six bricks of four samples, a pool with room for four of them.
struct Scene {
    Scene()
        : store(std::make_shared<MemoryStore<int>>(Testing::PlainArray<int>({24, 1, 1, 1}), Index(4, 1, 1, 1))),
          pool(std::make_shared<BrickPool>(64, [](std::string const& line) { ADD_FAILURE() << line; })),
          chain(StoreAccessor::Make(store, pool, [](auto task) { Testing::callOut("execute"), task(); })) {
        std::iota(store->data.samples().begin(), store->data.samples().end(), 0);
        store->onRead = [] { Testing::callOut("read"); };
        store->onWrite = [] { Testing::callOut("write"); };
    }

    int& sample(int index, AdtEnums::Access access) {
        chain->getBuffer({index, 0, 0, 0}, access, handle);
        return static_cast<int*>(handle.buffer())[handle.offset(index)];
    }
    void letGo() { handle.reset(/*releaseOwner=*/true); }
    ArrayRef<4> array() {
        return {
            OpenEndedRange<4, int>::OfSize({22, 1, 1, 1}),
            {1, 0, 0, 0},
            reinterpret_cast<char*>(memory.data()),
            0,
            typeid(int),
            32};
    }

    std::shared_ptr<MemoryStore<int>> store;
    std::shared_ptr<BrickPool> pool;
    std::unique_ptr<IBufferAccessor> chain;
    BufferHandle handle;
    std::vector<int> memory = std::vector<int>(22);
};

// All but the first and the last sample: parts of two bricks and the whole of four.
ExtentK<4, int> const kInner(Index(1, 0, 0, 0), Index(22, 1, 1, 1));

void readBricks(Scene& scene) {
    for (int index = 0; index < 24; index += 4) {
        EXPECT_EQ(scene.sample(index, AdtEnums::Read), index);
    }
    scene.letGo();
}

// One sample in each brick: more bricks than the pool has room for.
void writeBricks(Scene& scene) {
    for (int index = 1; index < 24; index += 4) {
        scene.sample(index, AdtEnums::ReadWrite) = 100 + index;
    }
    scene.letGo();
}

void flushPool(Scene& scene) {
    scene.pool->flush();
}

void expectWritten(Scene& scene, bool completed) {
    completed ? void() : scene.pool->flush();
    for (int index = 0; index < 24; ++index) {
        EXPECT_EQ(scene.store->data.samples()[static_cast<std::size_t>(index)], index % 4 == 1 ? 100 + index : index);
    }
}

void readInner(Scene& scene) {
    readRegion(*scene.chain, kInner, scene.array());
    for (int place = 0; place < 22; ++place) {
        EXPECT_EQ(scene.memory[static_cast<std::size_t>(place)], place + 1);
    }
}

void writeInner(Scene& scene) {
    std::iota(scene.memory.begin(), scene.memory.end(), 201);
    writeRegion(*scene.chain, kInner, scene.array());
    flush(*scene.chain);
}

void expectInner(Scene& scene, bool completed) {
    for (int index = 0; index < 24; ++index) {
        int const sample = scene.store->data.samples()[static_cast<std::size_t>(index)];
        bool const isInner = index > 0 && index < 23;
        EXPECT_TRUE(sample == (isInner ? 200 + index : index) || (!completed && sample == index)) << index << sample;
    }
}

void openAFile(Scene& scene) {
    Openers openers(scene.pool);
    openers.addSource<BulkFileDef>([&](BulkFileDef const& def, Openers const& its) {
        DataInfo info;
        info.valueName = def.fileName();
        return OpenedData{StoreAccessor::Make(scene.store, its.pool()), std::move(info)};
    });
    auto const opened = openers.open(SourceEntityDef(BulkFileDef("file", BulkFileDef::FILEFORMAT_OTHER)));
    EXPECT_EQ(opened.info.valueName, "file");
}

TEST(Stores, SurviveEveryFailure) {
    Testing::failInEach<Scene>({
        {"lending bricks", Fails::kBoth, readBricks},
        {"writing more bricks than fit", Fails::kBoth, [](Scene& scene) { writeBricks(scene), flushPool(scene); },
         [](Scene& scene, bool completed) { completed ? expectWritten(scene, true) : void(); }},
        {"flushing", Fails::kBoth, flushPool, expectWritten, writeBricks},
        {"clearing", Fails::kCalls, [](Scene& scene) { scene.pool->clear(); }, expectWritten, writeBricks},
        {"reading a region", Fails::kBoth, readInner},
        {"writing a region", Fails::kBoth, writeInner, expectInner},
        {"reading ahead", Fails::kBoth,
         [](Scene& scene) {
             scene.pool->clear();
             scene.chain->setHint(IBufferAccessor::Prefetch, {{}, {24, 1, 1, 1}}, 1);
         }},
        {"opening a file", Fails::kAllocations, openAFile},
    });
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView
