#include "asn1/document_memory.h"

#include <cstdlib>
#include <iterator>
#include <new>
#include <utility>

#include "frame/wipe.h"

namespace zarext {

void ThrowNoMemory() { throw std::bad_alloc(); }

// The lists and the first block get their values when they are used.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
DocumentMemory::DocumentMemory(Release release) : release_(release) {
  ASAN_POISON_MEMORY_REGION(first_, kFirstBlock);
}

DocumentMemory::~DocumentMemory() {
  Clear();
  ASAN_UNPOISON_MEMORY_REGION(first_, kFirstBlock);
}

void DocumentMemory::Wipe(void* octets, std::size_t size) const noexcept {
  if (release_ == Release::kWiped) {
    WipeOctets(octets, size);
  }
}

DocumentMemory::Block* DocumentMemory::AddBlock(std::size_t size) {
  auto* block = static_cast<Block*>(
      std::malloc(sizeof(Block) + size));  // NOLINT(cppcoreguidelines-no-malloc)
  if (block == nullptr) {
    ThrowNoMemory();
  }
  *block = {blocks_, &blocks_, size};
  if (blocks_ != nullptr) {
    blocks_->link = &block->next;
  }
  blocks_ = block;
  return block;
}

void DocumentMemory::EndBlock(Block* block) noexcept {
  ASAN_UNPOISON_MEMORY_REGION(block->Octets(), block->size);
  Wipe(block->Octets(), block->size);
  std::free(block);  // NOLINT(cppcoreguidelines-no-malloc)
}

std::uint8_t* DocumentMemory::TakeElsewhere(std::size_t size) {
  if (size > kLargestPiece) {
    return AddBlock(size)->Octets();
  }
  const SizeClass kind = ClassOf(size);
  if (isGivenBack_[kind.index]) {
    GivenBack* piece = givenBack_[kind.index];
    ASAN_UNPOISON_MEMORY_REGION(piece, sizeof(GivenBack));
    givenBack_[kind.index] = piece->next;
    isGivenBack_[kind.index] = piece->next != nullptr;
    ASAN_POISON_MEMORY_REGION(piece, sizeof(GivenBack));
    return reinterpret_cast<std::uint8_t*>(piece);
  }
  const std::size_t grown = std::clamp(held_, kLeastBlock, kMostUnexpected);
  // Forgotten first: what is refused now is not asked for again.
  const std::size_t expected = std::exchange(expected_, 0);
  const std::size_t announced = std::min(expected, kMostExpected);
  Block* block = AddBlock(std::max({kind.octets, announced, grown}));
  expected_ = expected - std::min(expected, block->size);
  held_ += block->size;
  ASAN_POISON_MEMORY_REGION(block->Octets(), block->size);
  next_ = block->Octets() + kind.octets;
  end_ = block->Octets() + block->size;
  return block->Octets();
}

void DocumentMemory::GiveBack(void* piece, std::size_t size) noexcept {
  if (size > kLargestPiece) {
    Block* block = static_cast<Block*>(piece) - 1;
    *block->link = block->next;
    if (block->next != nullptr) {
      block->next->link = block->link;
    }
    EndBlock(block);
    return;
  }
  Wipe(piece, size);
  const SizeClass kind = ClassOf(size);
  ASAN_UNPOISON_MEMORY_REGION(piece, sizeof(GivenBack));
  givenBack_[kind.index] =
      new (piece) GivenBack{isGivenBack_[kind.index] ? givenBack_[kind.index] : nullptr};
  isGivenBack_.set(kind.index);
  ASAN_POISON_MEMORY_REGION(piece, kind.octets);
}

void DocumentMemory::Clear() noexcept {
  while (blocks_ != nullptr) {
    EndBlock(std::exchange(blocks_, blocks_->next));
  }
  const bool moreThanFirst = end_ != first_ + kFirstBlock;
  const auto used = moreThanFirst ? kFirstBlock : static_cast<std::size_t>(next_ - first_);
  ASAN_UNPOISON_MEMORY_REGION(first_, kFirstBlock);
  Wipe(first_, used);
  ASAN_POISON_MEMORY_REGION(first_, kFirstBlock);
  next_ = first_;
  end_ = first_ + kFirstBlock;
  held_ = kFirstBlock;
  expected_ = 0;
  isGivenBack_.reset();
}

}  // namespace zarext
