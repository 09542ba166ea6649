// The write callback: the key or the chain that a certificate goes to.
#include "contract/store_write_fixture.h"
#include "support/recorded_import.h"

namespace zarext::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Certificates that others issued.

TEST_F(StoreWrite, AnEndCertificateGoesToTheFirstKeyWithoutOne) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  provider.containers[0].keys[0].ownCertificate = MakeCertificate({.serial = {1}});
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(leaf, provider.containers[0].keys[1].ownCertificate);
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  // The whole walk stops.
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(2, 57"));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(3, 45"));
}

TEST_F(StoreWrite, AKeyWithAnEmptyCertificateHasNone) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].ownCertificate = {1};
  provider.alterKeyParam = [](BYTE*, DWORD* size) { *size = 0; };
  EXPECT_EQ(1, Write(leaf));
  EXPECT_THAT(provider.written, ElementsAre(leaf));
}

TEST_F(StoreWrite, AKeyThatRefusesIsFollowedByTheNext) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(leaf, provider.containers[0].keys[1].ownCertificate);
}

TEST_F(StoreWrite, TheSameEndCertificateIsFoundAndNotWrittenAgain) {
  AddThree();
  EXPECT_EQ(1, Write(leaf));
  provider.ClearCalls();
  EXPECT_EQ(1, Write(leaf));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("GetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("GetProvParam(4, 57"));
}

TEST_F(StoreWrite, AKeyWhoseCertificateDiffersInOneOctetIsPassedOver) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  for (Octets other : {leaf, leaf, leaf}) {
    static int round = 0;
    if (round == 0) other.back() ^= 1;
    if (round == 1) other.pop_back();
    if (round == 2) other.push_back(0);
    ++round;
    provider.containers[0].keys[0].ownCertificate = other;
    EXPECT_EQ(0, Write(leaf));
  }
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, AKeyWhoseCertificateIsLongerThanItsBufferIsLeftAlone) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].ownCertificate = leaf;
  provider.alterKeyParam = [](BYTE*, DWORD* size) { *size = 0xFFFFFFFF; };
  EXPECT_EQ(0, Write(leaf));
  EXPECT_EQ(0, Write(root));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, ARecordWithoutAHandleEndsTheKeysOfItsContainer) {
  AddContainer("c1", {KeyWith(0, {}, {}), KeyWith(0x12, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  EXPECT_EQ(1, Write(leaf));
  EXPECT_THAT(provider.containers[0].keys[1].ownCertificate, IsEmpty());
  EXPECT_EQ(leaf, provider.containers[1].keys[0].ownCertificate);
}

// Self-signed certificates.

TEST_F(StoreWrite, ARootGoesIntoTheChainOfOneKeyOfEveryContainer) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {})});
  EXPECT_EQ(1, Write(root));
  EXPECT_THAT(provider.Calls(),
              ElementsAre("AcquireContext(null, f0000000) = 2",           //
                          "GetProvParam(2, 57, 1024, 1) = c1",            //
                          "GetProvParam(2, 64, 1456, 0) = profile://c1",  //
                          "AcquireContext(profile://c1, 40) = 3",         //
                          "GetProvParam(3, 45, 88, 1)",                   //
                          "GetKeyParam(3, 11, 69, 32784, 0)",             //
                          "SetKeyParam(3, 11, 68, 0)",                    //
                          "ReleaseContext(3, 0)",                         //
                          "GetProvParam(2, 57, 1024, 0) = c2",            //
                          "GetProvParam(2, 64, 1456, 0) = profile://c2",  //
                          "AcquireContext(profile://c2, 40) = 4",         //
                          "GetProvParam(4, 45, 88, 1)",                   //
                          "GetKeyParam(4, 21, 69, 32784, 0)",             //
                          "SetKeyParam(4, 21, 68, 0)",                    //
                          "ReleaseContext(4, 0)",                         //
                          "GetProvParam(2, 57, 1024, 0) ! 103",           //
                          "ReleaseContext(2, 0)"));
  EXPECT_THAT(provider.written, ElementsAre(root, root));
}

TEST_F(StoreWrite, ARootThatTheChainHoldsIsNotWrittenAndTheNextKeyIsTried) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  // Another certificate of the same holder is enough.
  const Octets same =
      MakeCertificate({.serial = {0x78, 0x79}, .issuer = "Root", .subject = "Root"});
  provider.containers[0].keys[0].chain = MakeChain({leaf, same});
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam(3, 12, 68, 0)"));
  const std::string size = std::to_string(provider.containers[0].keys[0].chain.size());
  const std::string start =
      "EXT : CertStoreProvWriteCertCallback : CertEnumCertificatesInStore : size = " + size +
      ", oid = 1.2.398.3.10.1.1.1.2, [s/n= ";
  EXPECT_THAT(trace.Messages(), Contains(start + "79 78...]"));
  EXPECT_THAT(trace.Messages(), Contains(start + "56 34...]"));
}

TEST_F(StoreWrite, ReadsAChainAsX509AndPkcs7AndClosesItByForce) {
  using Open = RecordedImport<"CryptGetMessageCertificates", decltype(CryptGetMessageCertificates)>;
  const Open open(Module(), "CRYPT32.dll",
                  [](DWORD encoding, HCRYPTPROV_LEGACY context, DWORD flags, const BYTE*, DWORD) {
                    EXPECT_EQ(0x10001u, encoding);
                    EXPECT_EQ(0u, context);
                    EXPECT_EQ(0u, flags);
                    return std::string();
                  });
  const RecordedImport<"CertCloseStore", decltype(CertCloseStore)> close(
      Module(), "CRYPT32.dll", [](HCERTSTORE closed, DWORD flags) {
        EXPECT_EQ(Open::LastResult(), closed);
        return std::to_string(flags);
      });
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].chain = MakeChain({root});
  EXPECT_EQ(1, Write(root));
  // Open while the certificates are traced, and no longer.
  auto lines = LinesOf(events.Lines(), {"platform: ",
                                        "trace: EXT : CertStoreProvWriteCertCallback : "
                                        "CertEnum"});
  for (std::string& line : lines) {
    line = line.substr(0, line.find(" : size"));
  }
  EXPECT_THAT(lines, ElementsAre("platform: CryptGetMessageCertificates()",
                                 "trace: EXT : CertStoreProvWriteCertCallback : "
                                 "CertEnumCertificatesInStore",
                                 "platform: CertCloseStore(1)"));
}

TEST_F(StoreWrite, ARootThatEveryChainHoldsIsTrue) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].chain = MakeChain({root});
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(0, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(2, provider.CountCalls("GetProvParam(3, 45"));
}

TEST_F(StoreWrite, OtherCertificatesInTheChainDoNotCount) {
  const std::vector<Octets> others = {
      MakeCertificate({.issuer = "Root", .subject = "Subj"}),        // the issuer's name only
      MakeCertificate({.issuer = "Issu", .subject = "Root"}),        // the subject's name only
      MakeCertificate({.issuer = "Rooz", .subject = "Rooz"}),        // another root, same length
      MakeCertificate({.issuer = "R", .subject = "R"}),              // a shorter one
      MakeCertificate({.issuer = "Root CA", .subject = "Root CA"}),  // a longer one
      MakeCertificate({.issuer = "Root C", .subject = "Root"}),
  };
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  for (const Octets& other : others) {
    provider.containers[0].keys[0].chain = MakeChain({other});
    provider.ClearCalls();
    EXPECT_EQ(1, Write(root));
    EXPECT_EQ(1, provider.CountCalls("SetKeyParam("));
  }
}

TEST_F(StoreWrite, ARootIsOfferedWhereTheChainCannotBeRead) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.containers[0].keys[0].hasChain = false;
  EXPECT_EQ(1, Write(root));
  provider.containers[0].keys[0].hasChain = true;
  provider.containers[0].keys[0].chain = {0x04, 0x01, 0x00};
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(2, provider.CountCalls("SetKeyParam("));
  EXPECT_THAT(trace.Messages(), Not(Contains(HasSubstr("CertEnumCertificatesInStore"))));
}

TEST_F(StoreWrite, AKeyThatRefusesARootIsFollowedByTheNext) {
  AddContainer("c1", {KeyWith(0x11, {}, {}), KeyWith(0x12, {}, {}), KeyWith(0x13, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(2, provider.CountCalls("SetKeyParam("));
  EXPECT_EQ(0, provider.CountCalls("GetKeyParam(3, 13"));
}

TEST_F(StoreWrite, ARootThatOneKeyHasIsTrueWhateverALaterOneSays) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  AddContainer("c2", {KeyWith(0x21, {}, {}), KeyWith(0x22, {}, {})});
  // Taken in the first container, refused by both keys of the second.
  provider.FailCall("SetKeyParam", 2, 5);
  provider.FailCall("SetKeyParam", 3, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(3, provider.CountCalls("SetKeyParam("));
  // Held by the first key, refused by the next one of the same container.
  provider.containers.erase(provider.containers.begin());
  provider.containers[0].keys[0].chain = MakeChain({root});
  provider.FailCall("SetKeyParam", 4, 5);
  EXPECT_EQ(1, Write(root));
  EXPECT_EQ(4, provider.CountCalls("SetKeyParam("));
}

TEST_F(StoreWrite, ARootThatNobodyTakesIsFalse) {
  AddContainer("c1", {KeyWith(0x11, {}, {})});
  provider.FailCall("SetKeyParam", 1, 5);
  EXPECT_EQ(0, Write(root));
}

TEST_F(StoreWrite, IssuerAndSubjectOfDifferentLengthsAreNotSelfSigned) {
  AddThree();
  EXPECT_EQ(1, Write(MakeCertificate({.issuer = "Root", .subject = "Root 2"})));
  EXPECT_EQ(1, provider.CountCalls("SetKeyParam(3, 11, 26"));
}

}  // namespace
}  // namespace zarext::test
