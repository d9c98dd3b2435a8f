#include "dravik/adt/bulkview/accessors/memory_accessor.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

namespace Quorvel::Dravik::Adt::BulkView::Accessors {
namespace {

using Position = FixedVector<4, int>;

SharedArray<2> plane() {
    return SharedArray<2>::Make<float>({{0, 0}, {3, 4}});
}

// Storage for so many bytes that is there but not allocated.
SharedArray<4> unallocated(unsigned byteSize) {
    ArrayRef<4> const array({{}, {3, 4, 1, 1}}, {4, 1, 0, 0}, nullptr, 0, typeid(float), 32);
    return {array, SharedBuffer(new SharedBuffer::BasicArrayOwner(byteSize))};
}

TEST(MemoryAccessor, HasTheUpperCornerOfItsArrayAsSize) {
    EXPECT_EQ(MemoryAccessor(plane()).getSize(), Position(3, 4, 1, 1));
    EXPECT_EQ(MemoryAccessor(SharedArray<3>::Make<char>({{1, 1, 1}, {3, 4, 5}})).getSize(), Position(3, 4, 5, 1));
    EXPECT_EQ(MemoryAccessor(unallocated(48)).getSize(), Position(3, 4, 1, 1)) << "storage without memory is enough";
}

TEST(MemoryAccessor, FailsItsSizeWithoutStorage) {
    MemoryAccessor disposed(plane());
    disposed.dispose(/*flag=*/false);
    EXPECT_EQ(disposed.data().data(), nullptr);
    EXPECT_EQ(disposed.data().range().max, Position(3, 4, 1, 1));
    for (MemoryAccessor accessor : {MemoryAccessor(), disposed}) {
        try {
            accessor.getSize();
            ADD_FAILURE() << "no exception";
        } catch (std::runtime_error const& failure) {
            EXPECT_STREQ(failure.what(), "[MemoryAccessor] Accessor does not have any data.");
        }
    }
}

TEST(MemoryAccessor, LendsAllOfItForReadingOrForBoth) {
    for (int asked = 0; asked <= 4; ++asked) {
        MemoryAccessor accessor(plane());
        BufferHandle handle;
        accessor.getBuffer({99, -1, 0, 0}, static_cast<AdtEnums::Access>(asked), handle);
        EXPECT_EQ(handle.access(), asked == AdtEnums::Read ? AdtEnums::Read : AdtEnums::ReadWrite) << asked;
        EXPECT_EQ(handle.buffer(), accessor.data().data()) << asked;
        EXPECT_TRUE(handle.contains(2, 3, 0, 0)) << asked;
        EXPECT_FALSE(handle.contains(3, 0, 0, 0)) << asked;
    }
}

TEST(MemoryAccessor, AllocatesForWritersOnlyAndOnce) {
    MemoryAccessor accessor(unallocated(48));
    auto const clone = accessor.createClone();
    BufferHandle reader, writer, other;
    accessor.getBuffer({}, AdtEnums::Read, reader);
    EXPECT_TRUE(reader.isNull());
    EXPECT_TRUE(reader.contains(2, 3, 0, 0));
    accessor.getBuffer({}, AdtEnums::Populate, writer);
    ASSERT_FALSE(writer.isNull());
    clone->getBuffer({}, AdtEnums::Read, other);
    EXPECT_TRUE(other.isNull()) << "a clone from before reads nothing until it writes";
    clone->getBuffer({}, AdtEnums::ReadWrite, other);
    EXPECT_EQ(other.buffer(), writer.buffer());
    accessor.getBuffer({}, AdtEnums::Read, reader);
    EXPECT_EQ(reader.buffer(), writer.buffer());
}

TEST(MemoryAccessor, LendsNothingFromStorageThatIsTooSmall) {
    MemoryAccessor accessor(unallocated(47));
    BufferHandle handle;
    accessor.getBuffer({}, AdtEnums::ReadWrite, handle);
    EXPECT_TRUE(handle.isNull());
    EXPECT_TRUE(handle.contains(2, 3));
}

TEST(MemoryAccessor, GetsNewMemoryForAWriterAfterDisposal) {
    MemoryAccessor accessor(plane());
    accessor.dispose(/*flag=*/true);
    BufferHandle handle;
    accessor.getBuffer({}, AdtEnums::Write, handle);
    EXPECT_FALSE(handle.isNull());
    EXPECT_EQ(accessor.getSize(), Position(3, 4, 1, 1));
}

TEST(MemoryAccessor, LeavesTheHandleAloneWhenItCannotAllocate) {
    auto array = unallocated(48);
    array.setStrides({-4, 1, 0, 0});
    MemoryAccessor accessor(array);
    BufferHandle handle;
    char block[1] = {};
    handle.update(block, {}, AdtEnums::Read);
    EXPECT_THROW(accessor.getBuffer({}, AdtEnums::ReadWrite, handle), std::runtime_error);
    EXPECT_EQ(handle.buffer(), block);
    EXPECT_EQ(handle.access(), AdtEnums::Read);
}

TEST(MemoryAccessor, LeavesTheOwnerOfAnEarlierLoan) {
    struct Owner : BufferHandle::Owner {
        void lock() override {}
        void unlock() override {}
    };
    MemoryAccessor accessor(plane());
    BufferHandle handle;
    boost::intrusive_ptr<BufferHandle::Owner> const owner(new Owner);
    handle.setOwner(owner.get());
    accessor.getBuffer({}, AdtEnums::Read, handle);
    EXPECT_EQ(handle.owner(), owner.get());
}

}  // namespace
}  // namespace Quorvel::Dravik::Adt::BulkView::Accessors
