#include "check/zip.h"

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

namespace zarext::check {
namespace {

// The polynomial of zip (and of Ethernet), reflected.
std::uint32_t Crc32(const std::string& octets) {
  std::uint32_t crc = 0xFFFFFFFFU;
  for (const char octet : octets) {
    crc ^= static_cast<unsigned char>(octet);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

// Little-endian numbers, one behind the other.
class Fields {
 public:
  Fields& Two(std::size_t number) { return Add(number, 2); }
  Fields& Four(std::size_t number) { return Add(number, 4); }
  Fields& Text(const std::string& text) {
    octets_ += text;
    return *this;
  }
  [[nodiscard]] const std::string& Octets() const { return octets_; }

 private:
  Fields& Add(std::size_t number, int count) {
    for (int i = 0; i < count; ++i, number >>= 8U) {
      octets_ += static_cast<char>(number & 0xFFU);
    }
    return *this;
  }
  std::string octets_;
};

// What the local header and the directory's entry have in common: version 1.0, names in UTF-8,
// stored, the first day that the format knows.
std::string Facts(const std::string& name, const std::string& content) {
  return Fields()
      .Two(10)
      .Two(0x0800)
      .Two(0)
      .Two(0)
      .Two(0x0021)
      .Four(Crc32(content))
      .Four(content.size())
      .Four(content.size())
      .Two(name.size())
      .Two(0)
      .Octets();
}

}  // namespace

bool ZipFolder(const std::filesystem::path& folder, const std::filesystem::path& archive) {
  std::string body;
  std::string directory;
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file()) {
      continue;
    }
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    const auto utf8 = entry.path().filename().u8string();
    const std::string name(utf8.begin(), utf8.end());
    directory += Fields()
                     .Four(0x02014B50)
                     .Two(20)
                     .Text(Facts(name, content))
                     .Two(0)
                     .Two(0)
                     .Two(0)
                     .Four(0)
                     .Four(body.size())
                     .Text(name)
                     .Octets();
    body += Fields().Four(0x04034B50).Text(Facts(name, content)).Text(name).Text(content).Octets();
    ++count;
  }
  std::ofstream out(archive, std::ios::binary);
  out << body << directory
      << Fields()
             .Four(0x06054B50)
             .Two(0)
             .Two(0)
             .Two(count)
             .Two(count)
             .Four(directory.size())
             .Four(body.size())
             .Two(0)
             .Octets();
  out.close();
  return !out.fail();
}

}  // namespace zarext::check
