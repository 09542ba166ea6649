// The walk over containers that are not as they should be: texts and lists without an end, records
// without a part, calls that fail.
#include <algorithm>

#include "store_load_fixture.h"
#include "support/guarded_memory.h"

namespace zarext::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Upper-case hexadecimal of `count` octets 0xA5.
std::wstring A5Text(std::size_t count) {
  std::wstring text;
  for (std::size_t i = 0; i < count; ++i) {
    text += L"A5";
  }
  return text;
}

TEST_F(StoreLoad, CutsALongSerialNumberToWhatFitsInto519Characters) {
  // 519 - 10 - 1 - 5 = 503 characters: 251 pairs.
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), Octets(300, 0xA5))});
  auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=" + A5Text(251), content[0].container);
  Advance(100);
  // 519 - 10 - 258 - 5 = 246 characters: 123 pairs, and the address is full.
  provider.containers[0].name = std::string(258, 'n');
  content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://" + std::wstring(258, L'n') + L"/?sn=" + A5Text(123), content[0].container);
  Advance(100);
  provider.containers[0].keys[0].serial = Octets(123, 0xA5);
  content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(519u, content[0].container.size());
}

TEST_F(StoreLoad, ANameOf259OctetsIsReadAndALongerOnePassedOver) {
  AddContainer(std::string(260, 'x'), {KeyWith(0x11, MakeCertificate({.serial = {1}}), {1})});
  AddContainer(std::string(259, 'y'), {KeyWith(0x12, MakeCertificate({.serial = {2}}), {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://" + std::wstring(259, L'y') + L"/?sn=02", content[0].container);
  // The first was not asked about.
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(1, 64"));
}

TEST_F(StoreLoad, PassesAContainerWithAnUnendedTextOver) {
  struct Field {
    std::size_t offset;
    std::size_t size;
  };
  for (const Field field : {Field{128, 192}, Field{320, 128}, Field{448, 496}}) {
    provider.containers.clear();
    AddContainer("bad", {KeyWith(0x11, MakeCertificate({.serial = {1}}), {1})});
    AddContainer("good", {KeyWith(0x12, MakeCertificate({.serial = {2}}), {2})});
    int profiles = 0;
    provider.alterProfile = [&](BYTE* record) {
      if (++profiles == 1) std::memset(record + field.offset, 'f', field.size);
    };
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(1)) << field.offset;
    EXPECT_EQ(L"profile://good/?sn=02", content[0].container);
    Advance(100);
  }
}

TEST_F(StoreLoad, ATextThatFillsItsFieldButForTheTerminatorIsRead) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
  provider.containers[0].kind = std::string(191, 'k');
  provider.containers[0].secondText = std::string(127, 's');
  provider.containers[0].thirdText = std::string(495, 't');
  EXPECT_THAT(Load(), SizeIs(1));
  EXPECT_EQ("EXT : load_certs_from_CSP : URL = profile://c (" + std::string(191, 'k') + " : " +
                std::string(495, 't') + ").",
            LoadLines()[0]);
}

TEST_F(StoreLoad, AContextWhoseHandleIs0IsUsedAndReleased) {
  AddContainer("c", {KeyWith(0, MakeCertificate({}), {1})});
  // Of the verify context, and of the container's.
  for (const HCRYPTPROV first : {HCRYPTPROV{0}, ~HCRYPTPROV{0}}) {
    SCOPED_TRACE(first);
    provider.nextContext = first;
    provider.ClearCalls();
    EXPECT_THAT(Load(), SizeIs(1));
    const std::string verify = std::to_string(first);
    const std::string container = std::to_string(first + 1);
    EXPECT_THAT(provider.Calls(),
                ElementsAre("AcquireContext(null, f0000000) = " + verify,
                            "GetProvParam(" + verify + ", 57, 260, 1) = c",
                            "GetProvParam(" + verify + ", 64, 1456, 0) = profile://c",
                            "AcquireContext(profile://c, 40) = " + container,
                            "GetProvParam(" + container + ", 45, 88, 1)",
                            "ReleaseContext(" + container + ", 0)",
                            "GetProvParam(" + verify + ", 57, 260, 0) ! 103",
                            "ReleaseContext(" + verify + ", 0)"));
    Advance(100);
  }
}

TEST_F(StoreLoad, WithoutAVerifyContextTheStoreIsEmpty) {
  AddContainer("c", {KeyWith(0x11, MakeCertificate({}), {1})});
  provider.FailCall("AcquireContext", 1, 0x80090016);
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_THAT(provider.Calls(), ElementsAre("AcquireContext(null, f0000000) ! 80090016"));
  EXPECT_THAT(LoadLines(), IsEmpty());
}

TEST_F(StoreLoad, GoesOnWithTheNextContainerWhereOneFails) {
  for (const char* const failing : {"GetProvParam 64", "AcquireContext", "GetProvParam 45"}) {
    SCOPED_TRACE(failing);
    ContainerProvider fresh;
    UseScript(&fresh);
    for (std::uint8_t number = 1; number <= 3; ++number) {
      fresh.containers.push_back(
          {"c" + std::to_string(number),
           "file",
           "",
           "",
           {KeyWith(number, MakeCertificate({.serial = {number}}), {number})}});
    }
    fresh.FailCall(failing, std::string(failing) == "AcquireContext" ? 3 : 2, 5);
    // The second listing call of a container is its end, so the second container's first is third.
    if (std::string(failing) == "GetProvParam 45") fresh.FailCall(failing, 3, 5);
    trace.Clear();
    const auto content = Load();
    ASSERT_THAT(content, SizeIs(2));
    std::vector<std::wstring> addresses = {content[0].container, content[1].container};
    std::sort(addresses.begin(), addresses.end());
    EXPECT_THAT(addresses, ElementsAre(L"profile://c1/?sn=01", L"profile://c3/?sn=03"));
    EXPECT_EQ(0u, fresh.OpenContexts());
    UseScript(&provider);
    Advance(100);
  }
}

TEST_F(StoreLoad, ListsOnlyRecordsWithCertificateAndSerialNumber) {
  const Octets certificate = MakeCertificate({});
  std::vector<TestKey> keys = {KeyWith(1, {}, {1}), KeyWith(2, certificate, {})};
  TestKey lengthWithoutSerial = KeyWith(3, certificate, {1});
  lengthWithoutSerial.alter = [](KeyRecord& record) { record.serial = nullptr; };
  TestKey lengthWithoutCertificate = KeyWith(4, certificate, {1});
  lengthWithoutCertificate.alter = [](KeyRecord& record) { record.certificate = nullptr; };
  TestKey noSerialLength = KeyWith(5, certificate, {1});
  noSerialLength.alter = [](KeyRecord& record) { record.serialSize = 0; };
  TestKey noCertificateLength = KeyWith(6, certificate, {1});
  noCertificateLength.alter = [](KeyRecord& record) { record.certificateSize = 0; };
  keys.insert(keys.end(),
              {lengthWithoutSerial, lengthWithoutCertificate, noSerialLength, noCertificateLength});
  AddContainer("c", keys);
  EXPECT_THAT(Load(), IsEmpty());
  // Their chains were read all the same.
  EXPECT_EQ(6, provider.CountCalls("GetKeyParam(2, "));
  EXPECT_EQ(0u, SharedSection().Size());
}

TEST_F(StoreLoad, ReadsNothingBehindWhatAProviderReallyHas) {
  const Octets certificate = MakeCertificate({});
  const GuardedMemory guardedCertificate(certificate);
  const GuardedMemory guardedSerial(Octets{1, 2});
  const auto with = [&](std::uint32_t certificateSize, std::uint32_t serialSize) {
    TestKey key = KeyWith(0x11, certificate, {1});
    key.alter = [&, certificateSize, serialSize](KeyRecord& record) {
      record.certificate = guardedCertificate.Data();
      record.certificateSize = certificateSize;
      record.serial = guardedSerial.Data();
      record.serialSize = serialSize;
    };
    return key;
  };
  const auto size = static_cast<std::uint32_t>(certificate.size());
  AddContainer("c", {with(size + 1, 2), with(size, 3), with(0xFFFFFFFF, 2), with(size, 0xFFFFFFFF),
                     with(size, 2)});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=0102", content[0].container);
}

TEST_F(StoreLoad, ARecordWithoutAHandleIsListedAndEndsItsContainer) {
  AddContainer("c", {KeyWith(1, MakeCertificate({.serial = {1}}), {1}),
                     KeyWith(0, MakeCertificate({.serial = {2}}), {2}),
                     KeyWith(3, MakeCertificate({.serial = {3}}), {3})});
  AddContainer("d", {KeyWith(4, MakeCertificate({.serial = {4}}), {4})});
  EXPECT_THAT(Load(), SizeIs(3));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(2, 45"));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam(2, "));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam(3, 4, 69"));
}

TEST_F(StoreLoad, SkipsACertificateThatDoesNotDecode) {
  AddContainer(
      "c", {KeyWith(1, {0x30, 0x03, 0x02, 0x01, 0x05}, {1}), KeyWith(2, MakeCertificate({}), {2})});
  const auto content = Load();
  ASSERT_THAT(content, SizeIs(1));
  EXPECT_EQ(L"profile://c/?sn=02", content[0].container);
}

TEST_F(StoreLoad, LeavesAListOfContainersThatDoesNotEnd) {
  AddContainer("c", {});
  provider.containers[0].kind = "unlisted";
  provider.endlessContainers = true;
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(1, 57"));
}

TEST_F(StoreLoad, LeavesAListOfKeysThatDoesNotEnd) {
  TestKey key = KeyWith(1, {}, {});
  key.hasChain = false;
  AddContainer("c", {key});
  provider.endlessKeys = true;
  EXPECT_THAT(Load(), IsEmpty());
  EXPECT_EQ(65536, provider.CountCalls("GetProvParam(2, 45"));
}

}  // namespace
}  // namespace zarext::test
