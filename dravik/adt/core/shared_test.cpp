// SPDX-License-Identifier: Apache-2.0
#include "dravik/adt/core/shared.h"

#include <boost/smart_ptr/bad_weak_ptr.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

namespace Quorvel::Dravik::Adt {
namespace {

static_assert(!std::is_copy_constructible_v<Shared> && !std::is_copy_assignable_v<Shared>);
static_assert(std::has_virtual_destructor_v<Shared>);

class Probe : public Shared {
  public:
    explicit Probe(std::string& story) : story_(story) {}
    ~Probe() override { story_ += "deleted;"; }
    void dispose() override { story_ += "disposed at " + std::to_string(getReferenceCount()) + ";"; }

    using Shared::createFromPointer;
    using Shared::getReferenceCount;
    using Shared::tryCreateFromPointer;

  private:
    std::string& story_;
};

TEST(Shared, GoesWithTheLastReference) {
    std::string story;
    auto* const probe = new Probe(story);
    EXPECT_EQ(probe->getReferenceCount(), 0);
    EXPECT_FALSE(probe->isUniqueRef());
    boost::intrusive_ptr<Probe const> first(probe);
    EXPECT_TRUE(probe->isUniqueRef());
    {
        boost::intrusive_ptr<Shared const> const second(first);
        EXPECT_EQ(probe->getReferenceCount(), 2);
        EXPECT_FALSE(probe->isUniqueRef());
    }
    EXPECT_TRUE(probe->isUniqueRef());
    EXPECT_EQ(probe->get_deleter(typeid(Probe)), nullptr);
    EXPECT_EQ(story, "");
    first.reset();
    EXPECT_EQ(story, "disposed at 0;deleted;");
}

TEST(Shared, MakesReferencesOnlyToWhatIsReferenced) {
    std::string story;
    auto unreferenced = std::make_unique<Probe>(story);
    EXPECT_FALSE(Probe::createFromPointer(nullptr));
    EXPECT_FALSE(Probe::tryCreateFromPointer(nullptr));
    EXPECT_THROW(Probe::createFromPointer(unreferenced.get()), boost::bad_weak_ptr);
    EXPECT_EQ(Probe::tryCreateFromPointer(unreferenced.get()), nullptr);
    EXPECT_EQ(unreferenced->getReferenceCount(), 0);
    EXPECT_EQ(story, "");

    boost::intrusive_ptr<Probe> const held(unreferenced.release());
    boost::intrusive_ptr<Shared> const more[] = {
        Probe::tryCreateFromPointer(held.get()), Probe::createFromPointer(held.get())};
    EXPECT_EQ(more[0], held);
    EXPECT_EQ(more[1], held);
    EXPECT_EQ(held->getReferenceCount(), 3);
}

// An object on its way out must never be handed out again: the attempt races with the last reference.
TEST(Shared, NeverRevivesWhatAnotherThreadLetsGo) {
    class Ward : public Shared {
      public:
        explicit Ward(std::atomic<bool>& disposed) : disposed_(disposed) {}
        void dispose() override { disposed_ = true; }
        void destroy() override {}  // outlives its count, so that the other thread may look at it
        using Shared::tryCreateFromPointer;

      private:
        std::atomic<bool>& disposed_;
    };
    for (int round = 0; round < 2000; ++round) {
        std::atomic<bool> disposed = false;
        Ward ward(disposed);
        boost::intrusive_ptr<Ward> last(&ward);
        std::thread other([&] { last.reset(); });
        if (auto const caught = Ward::tryCreateFromPointer(&ward)) {
            EXPECT_FALSE(disposed) << "in round " << round;
        }
        other.join();
        EXPECT_TRUE(disposed);
    }
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt
