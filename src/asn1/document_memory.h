// The memory of one document. Its pieces (records, contents, child arrays, texts) are cut from
// blocks that belong to the document and go together: a document costs few allocations, whatever it
// holds, and its end needs no walk. A piece that is given back serves the next one of its size
// class, so that however long a document is edited, its blocks hold for each class no more pieces
// than it ever had of that class at once, and what was left of a block when the next one began.
// A piece above kLargestPiece is a block of its own, which goes with it.
#ifndef ZAREXT_ASN1_DOCUMENT_MEMORY_H_
#define ZAREXT_ASN1_DOCUMENT_MEMORY_H_

#include <algorithm>
#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>

// Under AddressSanitizer every piece is poisoned around and after its use, as a block of its own
// would be.
#if defined(__SANITIZE_ADDRESS__)
#define ZAREXT_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#define ZAREXT_ADDRESS_SANITIZER __has_feature(address_sanitizer)
#else
#define ZAREXT_ADDRESS_SANITIZER 0
#endif
#if ZAREXT_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(0))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(0))
#endif

namespace zarext {

// What happens to memory that is given back: documents with private keys have it wiped.
enum class Release : bool { kPlain, kWiped };

// Throws std::bad_alloc.
[[noreturn]] void ThrowNoMemory();

class DocumentMemory {
 public:
  explicit DocumentMemory(Release release);
  ~DocumentMemory();
  DocumentMemory(const DocumentMemory&) = delete;
  DocumentMemory& operator=(const DocumentMemory&) = delete;

  // How many octets of a block a piece takes; none for one that has a block of its own.
  static constexpr std::size_t Need(std::size_t size) {
    return size > kLargestPiece ? 0 : ClassOf(size).octets;
  }

  // A piece of so many octets, at least one; not cleared. Throws std::bad_alloc.
  void* Take(std::size_t size) {
    const SizeClass kind = ClassOf(size);
    std::uint8_t* piece = next_;
    if (size > kLargestPiece || kind.octets > static_cast<std::size_t>(end_ - next_) ||
        isGivenBack_[kind.index]) {
      piece = TakeElsewhere(size);
    } else {
      next_ += kind.octets;
    }
    ASAN_UNPOISON_MEMORY_REGION(piece, size);
    return piece;
  }

  // Ends a piece that was taken with this size.
  void GiveBack(void* piece, std::size_t size) noexcept;

  // Ends all pieces.
  void Clear() noexcept;

  // The pieces to come need so many octets together: the next blocks are made for them.
  void Expect(std::size_t octets) { expected_ = octets; }

 private:
  static constexpr std::size_t kFirstBlock = 8192;  // holds a certificate
  static constexpr std::size_t kLeastBlock = 4096;
  // Longer blocks make documents slower on Wine's heap (script/bench asn1).
  static constexpr std::size_t kMostUnexpected = std::size_t{16} * 1024;
  static constexpr std::size_t kMostExpected = std::size_t{32} * 1024;
  static constexpr std::size_t kLargestPiece = std::size_t{16} * 1024;
  static constexpr std::size_t kClasses = 112;
  static constexpr std::size_t kMargin = ZAREXT_ADDRESS_SANITIZER ? 16 : 0;

  struct SizeClass {
    std::size_t index;
    std::size_t octets;
  };
  // Steps of 16 octets up to 512, then sixteen steps for each power of two.
  static constexpr SizeClass ClassOf(std::size_t size) {
    const auto bits = static_cast<unsigned>(std::bit_width((size - 1) | 0x100U));
    const unsigned shift = bits - 5;
    const std::size_t last = (size - 1) >> shift;
    return {std::size_t{shift - 4} * 16 + last, ((last + 1) << shift) + kMargin};
  }

  struct alignas(16) Block {
    Block* next;
    Block** link;      // what points at this one
    std::size_t size;  // of the octets that follow
    [[nodiscard]] std::uint8_t* Octets() { return reinterpret_cast<std::uint8_t*>(this + 1); }
  };
  struct GivenBack {
    GivenBack* next;
  };

  std::uint8_t* TakeElsewhere(std::size_t size);
  Block* AddBlock(std::size_t size);
  void EndBlock(Block* block) noexcept;
  void Wipe(void* octets, std::size_t size) const noexcept;

  std::uint8_t* next_ = first_;  // what is left of the block from which pieces are cut
  std::uint8_t* end_ = first_ + kFirstBlock;
  Block* blocks_ = nullptr;
  std::size_t expected_ = 0;
  std::size_t held_ = kFirstBlock;  // octets of all blocks that were cut
  Release release_;
  std::bitset<kClasses> isGivenBack_;  // the size classes whose lists have values
  GivenBack* givenBack_[kClasses];
  alignas(16) std::uint8_t first_[kFirstBlock];
};

}  // namespace zarext

#endif  // ZAREXT_ASN1_DOCUMENT_MEMORY_H_
