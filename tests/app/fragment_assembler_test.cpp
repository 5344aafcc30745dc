#include "app/FragmentAssembler.h"

#include <gtest/gtest.h>

#include "tests/app/FakeSource.h"

namespace kvmpd::app {
namespace {

using test::Append;
using test::Bytes;
using test::MakeBox;

Box BoxOf(const char (&type)[5], const Bytes& body) {
    return Box{.type = FourCc(type), .position = 0, .bytes = MakeBox(type, body)};
}

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        Append(all, part);
    }
    return all;
}

TEST(FragmentAssemblerSegment, GivesEachFragmentItsInitialisation) {
    FragmentAssembler assembler;
    EXPECT_FALSE(assembler.Accept(BoxOf("ftyp", {1})));
    EXPECT_FALSE(assembler.Accept(BoxOf("moov", {2})));
    for (const std::uint8_t n : {std::uint8_t{3}, std::uint8_t{4}}) {
        EXPECT_FALSE(assembler.Accept(BoxOf("moof", {n})));
        const auto file = assembler.Accept(BoxOf("mdat", {n, n}));
        ASSERT_TRUE(file);
        EXPECT_EQ(*file,
                  Joined({MakeBox("ftyp", {1}), MakeBox("moov", {2}), MakeBox("moof", {n}), MakeBox("mdat", {n, n})}));
    }
}

TEST(FragmentAssemblerSegment, TakesTheNextSegmentsInitialisation) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("ftyp", {1}));
    assembler.Accept(BoxOf("moov", {2}));
    assembler.Accept(BoxOf("ftyp", {8}));
    assembler.Accept(BoxOf("moov", {9}));
    assembler.Accept(BoxOf("moof", {}));
    EXPECT_EQ(assembler.Accept(BoxOf("mdat", {})),
              Joined({MakeBox("ftyp", {8}), MakeBox("moov", {9}), MakeBox("moof", {}), MakeBox("mdat", {})}));
    EXPECT_EQ(assembler.Segments(), 2);
}

TEST(FragmentAssemblerSegment, PassesOverBoxesOfOtherKinds) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("ftyp", {1}));
    assembler.Accept(BoxOf("free", {7}));
    assembler.Accept(BoxOf("moov", {2}));
    assembler.Accept(BoxOf("sidx", {7}));
    assembler.Accept(BoxOf("emsg", {7}));
    assembler.Accept(BoxOf("moof", {3}));
    assembler.Accept(BoxOf("free", {7}));
    EXPECT_EQ(assembler.Accept(BoxOf("mdat", {4})),
              Joined({MakeBox("ftyp", {1}), MakeBox("moov", {2}), MakeBox("moof", {3}), MakeBox("mdat", {4})}));
}

TEST(FragmentAssemblerSegment, MediaWithoutAnInitialisationIsLeftOutAndCounted) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("moof", {}));
    EXPECT_FALSE(assembler.Accept(BoxOf("mdat", {})));
    EXPECT_EQ(assembler.Orphans(), 1);
}

TEST(FragmentAssemblerSegment, DataWithoutAFragmentIsLeftOut) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("ftyp", {}));
    assembler.Accept(BoxOf("moov", {}));
    EXPECT_FALSE(assembler.Accept(BoxOf("mdat", {})));
}

TEST(FragmentAssemblerBoundary, OnlyAnMdatOrAnotherBoxMayBeASegmentsLast) {
    FragmentAssembler assembler;
    EXPECT_FALSE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("ftyp", {}));
    EXPECT_TRUE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("moov", {}));
    EXPECT_TRUE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("moof", {}));
    EXPECT_TRUE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("free", {}));
    EXPECT_TRUE(assembler.NextIsCertain());  // the fragment still waits for its data
    assembler.Accept(BoxOf("mdat", {}));
    EXPECT_FALSE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("emsg", {}));
    EXPECT_FALSE(assembler.NextIsCertain());
    assembler.Accept(BoxOf("styp", {}));
    EXPECT_TRUE(assembler.NextIsCertain());
}

TEST(FragmentAssemblerRestart, ForgetsTheFragmentAndTheCount) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("ftyp", {}));
    assembler.Accept(BoxOf("moov", {}));
    assembler.Accept(BoxOf("moof", {}));
    assembler.Restart();
    EXPECT_EQ(assembler.Segments(), 0);
    EXPECT_FALSE(assembler.NextIsCertain());
    EXPECT_FALSE(assembler.Accept(BoxOf("mdat", {})));
}

TEST(FragmentAssemblerDropPartial, KeepsTheInitialisation) {
    FragmentAssembler assembler;
    assembler.Accept(BoxOf("ftyp", {}));
    assembler.Accept(BoxOf("moov", {}));
    assembler.Accept(BoxOf("moof", {1}));
    assembler.DropPartial();
    EXPECT_FALSE(assembler.Accept(BoxOf("mdat", {})));
    assembler.Accept(BoxOf("moof", {2}));
    EXPECT_TRUE(assembler.Accept(BoxOf("mdat", {})));
}

}  // namespace
}  // namespace kvmpd::app
