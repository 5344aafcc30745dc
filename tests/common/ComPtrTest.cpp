#include "common/ComPtr.h"

#include <utility>

#include <gtest/gtest.h>

namespace kvmpd {
namespace {

struct Counted {
    int references = 1;
    int value = 42;
    void AddRef() { ++references; }
    void Release() { --references; }
};

using Pointer = ComPtr<Counted>;

TEST(ComPtrOwnership, SharingAddsAReferenceAndTheEndReleasesIt) {
    Counted object;
    {
        const Pointer pointer(&object);
        EXPECT_EQ(object.references, 2);
        EXPECT_EQ(pointer.get(), &object);
        EXPECT_EQ(pointer->value, 42);
        EXPECT_EQ((*pointer).value, 42);
        EXPECT_TRUE(pointer);
    }
    EXPECT_EQ(object.references, 1);
}

TEST(ComPtrOwnership, NullHoldsNothing) {
    const Pointer pointer(nullptr);
    EXPECT_FALSE(pointer);
    EXPECT_FALSE(Pointer());
}

TEST(ComPtrOwnership, CopiesHoldOneReferenceEach) {
    Counted object;
    const Pointer first(&object);
    Pointer second = first;
    EXPECT_EQ(object.references, 3);
    second = first;
    EXPECT_EQ(object.references, 3);
    second.Reset();
    EXPECT_EQ(object.references, 2);
    EXPECT_FALSE(second);
}

TEST(ComPtrOwnership, AssigningReleasesTheOld) {
    Counted first;
    Counted second;
    Pointer pointer(&first);
    pointer = Pointer(&second);
    EXPECT_EQ(first.references, 1);
    EXPECT_EQ(second.references, 2);
}

TEST(ComPtrOwnership, AssigningToItselfKeepsIt) {
    Counted object;
    Pointer pointer(&object);
    const Pointer& same = pointer;
    pointer = same;
    EXPECT_EQ(object.references, 2);
    EXPECT_EQ(pointer.get(), &object);
}

TEST(ComPtrOwnership, MovingPassesTheReferenceOn) {
    Counted object;
    Pointer first(&object);
    const Pointer second = std::move(first);
    EXPECT_FALSE(first);  // NOLINT: what is left of a moved-from pointer is part of its contract
    EXPECT_EQ(second.get(), &object);
    EXPECT_EQ(object.references, 2);
}

TEST(ComPtrOwnership, AttachTakesOverAndDetachGivesAway) {
    Counted object;
    Pointer pointer;
    pointer.Attach(&object);
    EXPECT_EQ(object.references, 1);
    EXPECT_EQ(pointer.Detach(), &object);
    EXPECT_FALSE(pointer);
    EXPECT_EQ(object.references, 1);
}

TEST(ComPtrOwnership, AttachReleasesTheOld) {
    Counted first;
    Counted second;
    Pointer pointer(&first);
    pointer.Attach(&second);
    EXPECT_EQ(first.references, 1);
    static_cast<void>(pointer.Detach());
}

TEST(ComPtrOwnership, PutReleasesTheOldAndReceivesTheNew) {
    Counted first;
    Counted second;
    Pointer pointer(&first);
    *pointer.put() = &second;
    EXPECT_EQ(first.references, 1);
    EXPECT_EQ(pointer.get(), &second);
    *pointer.putVoid() = &first;
    EXPECT_EQ(second.references, 0);
    EXPECT_EQ(pointer.get(), &first);
}

}  // namespace
}  // namespace kvmpd
