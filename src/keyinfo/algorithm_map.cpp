#include "keyinfo/algorithm_map.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zarext {
namespace {

struct ExportRow {
  std::uint32_t aiKeyAlg;
  const char* oid;
};

constexpr const char* kDefaultOid = "1.3.6.1.4.1.32473.1.2.2";

// The arcs 1.5 and 1.8 are not symmetrical: 1.5.17 and 1.5.18 have no partner under 1.8, and 1.8.12
// has none under 1.5. Issued certificates carry these identifiers.
constexpr std::array kExportRows = {
    ExportRow{0xAA3A, "1.3.6.1.4.1.32473.1.5.8"},  ExportRow{0xAA3B, "1.3.6.1.4.1.32473.1.5.9"},
    ExportRow{0xAA3C, "1.3.6.1.4.1.32473.1.5.10"}, ExportRow{0xAA3D, "1.3.6.1.4.1.32473.1.5.11"},
    ExportRow{0xAA40, "1.3.6.1.4.1.32473.1.5.14"}, ExportRow{0xAA41, "1.3.6.1.4.1.32473.1.5.15"},
    ExportRow{0xAA4C, "1.3.6.1.4.1.32473.1.5.17"}, ExportRow{0xAA4D, "1.3.6.1.4.1.32473.1.5.18"},
    ExportRow{0xA450, "1.3.6.1.4.1.32473.1.5.20"}, ExportRow{0xA451, "1.3.6.1.4.1.32473.1.5.21"},
    ExportRow{0xA452, "1.3.6.1.4.1.32473.1.5.22"}, ExportRow{0xA453, "1.3.6.1.4.1.32473.1.5.23"},
    ExportRow{0xA454, "1.3.6.1.4.1.32473.1.5.24"}, ExportRow{0xA045, "1.3.6.1.4.1.32473.1.8.8"},
    ExportRow{0xA049, "1.3.6.1.4.1.32473.1.8.9"},  ExportRow{0xA047, "1.3.6.1.4.1.32473.1.8.10"},
    ExportRow{0xA04E, "1.3.6.1.4.1.32473.1.8.11"}, ExportRow{0xA04F, "1.3.6.1.4.1.32473.1.8.12"},
    ExportRow{0xA046, "1.3.6.1.4.1.32473.1.8.14"}, ExportRow{0xA048, "1.3.6.1.4.1.32473.1.8.15"},
    ExportRow{0xA050, "1.3.6.1.4.1.32473.1.8.20"}, ExportRow{0xA051, "1.3.6.1.4.1.32473.1.8.21"},
    ExportRow{0xA052, "1.3.6.1.4.1.32473.1.8.22"}, ExportRow{0xA053, "1.3.6.1.4.1.32473.1.8.23"},
    ExportRow{0xA054, "1.3.6.1.4.1.32473.1.8.24"}, ExportRow{0x2A4A, "1.2.398.3.10.1.1.2.1.1"},
    ExportRow{0x2A4C, "1.2.398.3.10.1.1.2.2.1"},   ExportRow{0x2A3A, "1.2.398.3.10.1.1.1.1.1"},
    ExportRow{0x2A40, "1.2.398.3.10.1.1.1.1.2"},   ExportRow{0x2A41, "1.2.398.3.10.1.1.1.1.3"},
    ExportRow{0xA055, "1.2.398.3.10.1.4.1.1.1"},   ExportRow{0xA04B, "1.2.398.3.10.1.4.1.2.1"},
};

// In the order in which they are tried. The last one is for all others: every CryptoPro identifier,
// and the national "1.2.398.3.10.1.1.1.1" family, although its keys are exported under three
// ALG_IDs of their own: to the provider they are of 0xAA3A.
constexpr std::array kImportRules = {
    ImportRule{"1.2.398.3.10.1.1.2.1", 0x2A4A, 512},
    ImportRule{"1.2.398.3.10.1.4.1.1", 0xA055, 512},
    ImportRule{"1.2.398.3.10.1.1.2.2", 0x2A4C, 1024},
    ImportRule{"1.2.398.3.10.1.4.1.2", 0xA04B, 1024},
    ImportRule{"", 0xAA3A, 512},
};

}  // namespace

const char* OidOfAlgorithm(std::uint32_t aiKeyAlg) {
  for (const ExportRow& row : kExportRows) {
    if (row.aiKeyAlg == aiKeyAlg) {
      return row.oid;
    }
  }
  return kDefaultOid;
}

const ImportRule& ImportRuleOf(const char* oid) {
  return *std::find_if(kImportRules.begin(), kImportRules.end(), [oid](const ImportRule& rule) {
    return std::strstr(oid, rule.contains) != nullptr;
  });
}

bool TravelsAsOctetString(const char* oid) {
  return std::strstr(oid, "1.2.643.2.2") != nullptr ||
         std::strstr(oid, "1.2.398.3.10.1") != nullptr;
}

}  // namespace zarext
