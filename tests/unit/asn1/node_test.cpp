// What a record holds inside itself and what on the heap.

#include "asn1/node_tree.h"

#include <utility>

#include "unit/asn1/documents.h"

namespace zarext {
namespace {

class Inspected : public TASN1 {
 public:
  Inspected() : TASN1(0x30) {}
  const AsnNode& Top() const { return Root(); }
  void AddNulls(int count) {
    for (int i = 0; i < count; ++i) AddChild(0x05, 0, nullptr, 0xFFFFFF);
  }
};

bool InsideRecord(const AsnNode& node, const void* address) {
  const auto* octet = static_cast<const std::uint8_t*>(address);
  return octet >= reinterpret_cast<const std::uint8_t*>(&node) &&
         octet < reinterpret_cast<const std::uint8_t*>(&node) + sizeof(node);
}

TEST(NodeTest, Fresh) {
  const Inspected document;
  const AsnNode& root = document.Top();
  EXPECT_EQ(root.parent, nullptr);
  EXPECT_EQ(root.octets[0], 0x30);
  EXPECT_EQ(root.octets[1], 0);
  EXPECT_EQ(root.content, nullptr);
  EXPECT_EQ(root.text, nullptr);
  EXPECT_EQ(root.children, nullptr);
  EXPECT_EQ(root.capacity, 0U);
  EXPECT_EQ(root.count, 0);
}

TEST(NodeTest, ContentOf37OctetsIsInlineAndOf38OnTheHeap) {
  for (const std::uint32_t size : {1U, 37U, 38U, 39U}) {
    Inspected document;
    const Octets value(size, 0x11);
    document.AddChild(0x04, size, value.data(), 0xFFFFFF);
    const AsnNode& node = *document.Top().children[0];
    EXPECT_EQ(InsideRecord(node, node.content), size < 38) << size;
    EXPECT_EQ(node.content == node.octets + 2, size < 38) << size;
  }
  for (const std::uint32_t size : {37U, 38U}) {
    Parsed document(
        Octets{0x30, static_cast<std::uint8_t>(size + 2), 0x04, static_cast<std::uint8_t>(size)} +
        Octets(size, 0x11));
    const AsnNode& node = *document.Top().children[0];
    EXPECT_EQ(InsideRecord(node, node.content), size < 38) << size;
  }
}

// Contents of every size that has a way of its own to be copied, in and out.
TEST(NodeTest, ContentsOfEverySize) {
  for (std::uint8_t size = 0; size < 80; ++size) {
    Octets content(size);
    for (std::uint8_t i = 0; i < size; ++i) content[i] = static_cast<std::uint8_t>(i + 1);
    const Octets image =
        Octets{0x30, static_cast<std::uint8_t>(size + 4), 0x04, size} + content + Hex("05 00");
    Parsed document(image);
    EXPECT_EQ(Seen(document, 0).value, content) << int{size};
    EXPECT_EQ(EncodingOf(document), image) << int{size};
    EXPECT_EQ(EncodingOf(document, 0), (Octets{0x04, size} + content)) << int{size};
  }
}

TEST(NodeTest, BlocksEndWithZeros) {
  const Octets value(60, 0x11);
  Inspected document;
  document.AddChild(0x04, 60, value.data(), 0xFFFFFF);
  document.AddChild(0x02, 60, value.data(), 0xFFFFFF);
  const std::uint8_t* octets = document.Top().children[0]->content;
  EXPECT_EQ(octets[60], 0);
  const std::uint8_t* number = document.Top().children[1]->content;
  EXPECT_EQ(Octets(number + 60, number + 65), Octets(5, 0));
}

TEST(NodeTest, TextGoesWithTheTag) {
  Inspected document;
  document.AddChild(0x06, 0, "1.2.3", 0xFFFFFF);
  const AsnNode& node = *document.Top().children[0];
  EXPECT_EQ(node.text, nullptr);
  EXPECT_EQ(Seen(document, 0).Text(), "1.2.3");
  EXPECT_STREQ(node.text, "1.2.3");
  EXPECT_EQ(document.SetTag(0x86, 0, 0xFFFFFF), 0);
  EXPECT_EQ(node.text, nullptr);
}

TEST(NodeTest, NothingIsLeftBehindByAMove) {
  DocumentMemory memory(Release::kPlain);
  AsnNode from{};
  AsnNode to{};
  AsnNode parent{};
  to.parent = &parent;
  from.octets[0] = 0x04;
  std::uint8_t* content = PlaceContent(memory, &from, 37);
  std::fill(content, content + 37, std::uint8_t{0xD5});
  KeepText(memory, &from, "1.2");
  const char* text = from.text;
  MoveNode(&from, &to);
  EXPECT_EQ(to.parent, &parent);
  EXPECT_EQ(to.text, text);
  EXPECT_EQ(to.content, to.octets + 2);
  EXPECT_EQ(Octets(to.octets, to.octets + 40), Hex("04 25") + Octets(37, 0xD5) + Octets(1, 0));
  const auto* record = reinterpret_cast<const std::uint8_t*>(&from);
  EXPECT_EQ(Octets(record, record + 80), Octets(80, 0));
}

#if ZAREXT_ADDRESS_SANITIZER
// The sanitizer sees every piece of a document's memory as a block of its own.
TEST(NodeTest, PiecesArePoisonedAroundAndAfterTheirUse) {
  const Octets value(100, 0x11);
  Inspected document;
  document.AddNulls(4);
  document.AddChild(0x04, 100, value.data(), 0xFFFFFF);
  const AsnNode* record = document.Top().children[4];
  const std::uint8_t* content = record->content;
  const auto ends = [](const void* piece, std::size_t size) {
    const auto* octets = static_cast<const std::uint8_t*>(piece);
    return __asan_region_is_poisoned(const_cast<std::uint8_t*>(octets), size) == nullptr &&
           __asan_address_is_poisoned(octets + size) != 0;
  };
  EXPECT_TRUE(ends(record, 80));
  EXPECT_TRUE(ends(content, 105));
  EXPECT_TRUE(ends(document.Top().children, 80));
  document.DeleteNode(0, 4, 0xFFFFFF);
  EXPECT_TRUE(__asan_address_is_poisoned(record));
  EXPECT_TRUE(__asan_address_is_poisoned(content));
  // What was given back serves the next of its size.
  document.AddChild(0x04, 100, value.data(), 0xFFFFFF);
  EXPECT_EQ(document.Top().children[4], record);
  EXPECT_EQ(record->content, content);
  EXPECT_TRUE(ends(content, 105));
  document.Clear();
  EXPECT_TRUE(__asan_address_is_poisoned(record));
}
#endif

TEST(NodeTest, JoinedStringIsOnTheHeap) {
  Parsed document("24 03 04 01 AA");
  EXPECT_FALSE(InsideRecord(document.Top(), document.Top().content));
  EXPECT_EQ(document.Top().children, nullptr);
  EXPECT_EQ(document.Top().content[1], 0);
}

TEST(NodeTest, NumberIsKeptDirectlyBehindTheContent) {
  Parsed document("30 04 02 02 01 02");
  const std::uint8_t* value = nullptr;
  document.GetNode(nullptr, nullptr, nullptr, &value, 0, 0xFFFFFF);
  const AsnNode& node = *document.Top().children[0];
  EXPECT_EQ(value, node.content + 2);
}

TEST(NodeTest, ArrayGrowsWithTheChildThatFillsIt) {
  Inspected document;
  const AsnNode& root = document.Top();
  document.AddNulls(1);
  EXPECT_TRUE(InsideRecord(root, root.children));
  EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(root.children), root.octets + 8);
  EXPECT_EQ(root.capacity, 4U);
  document.AddNulls(2);
  EXPECT_TRUE(InsideRecord(root, root.children));
  EXPECT_EQ(root.capacity, 4U);
  document.AddNulls(1);
  EXPECT_FALSE(InsideRecord(root, root.children));
  EXPECT_EQ(root.capacity, 8U);
  EXPECT_EQ(root.count, 4);
  for (int slot = 4; slot < 10; ++slot) EXPECT_EQ(root.children[slot], nullptr);
  document.AddNulls(3);
  EXPECT_EQ(root.capacity, 8U);
  document.AddNulls(1);
  EXPECT_EQ(root.capacity, 16U);
  for (int slot = 8; slot < 18; ++slot) EXPECT_EQ(root.children[slot], nullptr);
  document.AddNulls(8);
  EXPECT_EQ(root.capacity, 32U);
  EXPECT_EQ(root.count, 16);
  document.AddNulls(16);
  EXPECT_EQ(root.capacity, 64U);
}

TEST(NodeTest, ArrayStaysWhenChildrenGo) {
  Inspected document;
  const AsnNode& root = document.Top();
  document.AddNulls(4);
  document.DeleteNode(0, 0, 0xFFFFFF);
  EXPECT_EQ(root.count, 3);
  EXPECT_EQ(root.capacity, 8U);
  EXPECT_EQ(root.children[3], nullptr);
  document.AddNulls(1);
  EXPECT_EQ(root.capacity, 8U);
  document.Clear();
  EXPECT_EQ(root.children, nullptr);
  EXPECT_EQ(root.count, 0);
  document.AddNulls(1);
  EXPECT_TRUE(InsideRecord(root, root.children));
  EXPECT_EQ(root.capacity, 4U);
}

TEST(NodeTest, NoSlotNamesAReleasedChild) {
  // Inline slots in use, and left behind by an array on the heap.
  for (const int children : {3, 9}) {
    for (const bool clear : {true, false}) {
      Inspected document;
      document.AddNulls(children);
      if (clear) {
        document.Clear();
      } else {
        EXPECT_EQ(document.DeleteNode(0, 0xFFFFFF), 0);
      }
      const AsnNode& root = document.Top();
      EXPECT_EQ(Octets(root.octets + 8, root.octets + 40), Octets(32, 0)) << children << clear;
    }
  }
}

// Of a document that is wiped, too: the inline slots begin behind the longest header.
TEST(NodeTest, ClearLeavesTheHeaderAsItIs) {
  class Wiped : public TASN1 {
   public:
    Wiped() : TASN1(0x30, Release::kWiped) {}
  } document;
  const Octets value(300, 0x11);
  document.AddChild(0x04, 300, value.data(), 0xFFFFFF);
  document.Clear();
  EXPECT_EQ(SizeOf(document), 308U);
  EXPECT_EQ(document.AddChild(0x05, 0, nullptr, 0xFFFFFF), 0);
  EXPECT_EQ(SizeOf(document), 310U);
}

TEST(NodeTest, InsertGrowsLikeAdd) {
  Inspected document;
  const AsnNode& root = document.Top();
  document.AddNulls(3);
  document.InsertBefore(0x02, 1, "\x05", 0, 0xFFFFFF);
  EXPECT_EQ(root.capacity, 8U);
  EXPECT_EQ(root.children[0]->octets[0], 0x02);
  EXPECT_EQ(root.children[4], nullptr);
}

// Slots keep clear of a header in its longest form.
TEST(NodeTest, LongHeaderAndInlineSlots) {
  Inspected document;
  const Octets value(70000, 0x11);
  document.AddChild(0x04, 70000, value.data(), 0xFFFFFF);
  const AsnNode& root = document.Top();
  EXPECT_TRUE(InsideRecord(root, root.children));
  EXPECT_EQ(HeaderSize(root), 5U);
  EXPECT_EQ(root.children[0]->parent, &root);
  EXPECT_EQ(Seen(document, 0).length, 70000U);
}

TEST(NodeTest, ParentsOfParsedNodes) {
  Parsed document("30 07 30 05 30 03 02 01 05");
  const AsnNode& root = document.Top();
  EXPECT_EQ(root.children[0]->parent, &root);
  EXPECT_EQ(root.children[0]->children[0]->parent, root.children[0]);
  EXPECT_EQ(root.children[0]->children[0]->children[0]->parent, root.children[0]->children[0]);
}

TEST(NodeTest, LengthsThatCannotBeEncoded) {
  EXPECT_EQ(CheckedLength(0xFFFFFFF9), 0xFFFFFFF9U);
  EXPECT_THROW(CheckedLength(0xFFFFFFFA), std::bad_alloc);
  EXPECT_THROW(CheckedLength(0x100000000), std::bad_alloc);
}

}  // namespace
}  // namespace zarext
