#include "unit/asn1/differential.h"
#include "unit/corpus_replay.h"

namespace zarext::test {
namespace {

class Asn1Corpus : public CorpusReplay {};

TEST_P(Asn1Corpus, FindsNothing) { FindNothing(); }

INSTANTIATE_TEST_SUITE_P(Targets, Asn1Corpus,
                         testing::Values(FuzzTarget{"asn1_image", CompareImage, 40},
                                         FuzzTarget{"asn1_script", CompareScript, 12},
                                         FuzzTarget{"asn1_oid", CompareOid, 15}),
                         TargetName);

}  // namespace
}  // namespace zarext::test
