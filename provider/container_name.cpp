#include "provider/container_name.h"

#include <algorithm>

#include "provider/bytes.h"

namespace zarext::provider {
namespace {

constexpr std::string_view kScheme = "profile://";
constexpr std::string_view kQueryMark = "/?";
constexpr std::string_view kFolderPrefix =
    "c-";  // keeps device names such as "con" out of the file system
constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::size_t kLongestFolder = 200;
constexpr std::size_t kLongestKind = 63;

bool IsPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool IsHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

void ParseField(std::string_view field, ContainerName& out) {
  const std::size_t equals = field.find('=');
  Require(equals != std::string_view::npos, NTE_BAD_KEYSET_PARAM);
  const std::string_view key = field.substr(0, equals);
  const std::string_view value = field.substr(equals + 1);
  if (key == "sn") {
    Require(!value.empty() && value.size() % 2 == 0 &&
                std::all_of(value.begin(), value.end(), IsHexDigit),
            NTE_BAD_KEYSET_PARAM);
    return;
  }
  Require(key == "kind", NTE_BAD_KEYSET_PARAM);
  Require(!value.empty() && value.size() <= kLongestKind &&
              std::all_of(value.begin(), value.end(), IsPlain),
          NTE_BAD_KEYSET_PARAM);
  out.kind = value;
}

}  // namespace

ContainerName ParseContainerName(std::string_view text) {
  ContainerName out;
  std::string_view query;
  bool hasQuery = false;
  if (text.starts_with(kScheme)) {
    text.remove_prefix(kScheme.size());
    if (const std::size_t mark = text.find(kQueryMark); mark != std::string_view::npos) {
      query = text.substr(mark + kQueryMark.size());
      hasQuery = true;
      text = text.substr(0, mark);
    }
  }
  Require(!text.empty(), NTE_BAD_KEYSET_PARAM);
  out.name = text;
  FolderOf(out.name);  // too long a name is refused here
  while (hasQuery) {
    const std::size_t end = query.find('&');
    ParseField(query.substr(0, end), out);
    hasQuery = end != std::string_view::npos;
    if (hasQuery) {
      query.remove_prefix(end + 1);
    }
  }
  return out;
}

std::string ContainerUrl(std::string_view name, std::string_view kind) {
  std::string url = std::string(kScheme) + std::string(name);
  if (kind != kFileKind) {
    url += std::string(kQueryMark) + "kind=" + std::string(kind);
  }
  return url;
}

std::string FolderOf(std::string_view name) {
  std::string out(kFolderPrefix);
  for (const char c : name) {
    if (IsPlain(c)) {
      out += c;
      continue;
    }
    const auto octet = static_cast<unsigned char>(c);
    out += {'%', kHexDigits[octet >> 4], kHexDigits[octet & 0x0F]};
  }
  Require(out.size() <= kLongestFolder, NTE_BAD_KEYSET_PARAM);
  return out;
}

std::string NameOfFolder(std::string_view folder) {
  if (!folder.starts_with(kFolderPrefix)) {
    return {};
  }
  folder.remove_prefix(kFolderPrefix.size());
  std::string name;
  while (!folder.empty()) {
    if (folder[0] != '%') {
      name += folder[0];
      folder.remove_prefix(1);
      continue;
    }
    if (folder.size() < 3) {
      return {};
    }
    const std::size_t high = kHexDigits.find(folder[1]);
    const std::size_t low = kHexDigits.find(folder[2]);
    if (high == std::string_view::npos || low == std::string_view::npos) {
      return {};
    }
    name += static_cast<char>(high << 4 | low);
    folder.remove_prefix(3);
  }
  return name;
}

}  // namespace zarext::provider
