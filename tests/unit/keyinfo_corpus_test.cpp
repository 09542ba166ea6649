#include "unit/corpus_replay.h"
#include "unit/keyinfo_properties.h"

namespace zarext::test {
namespace {

class KeyCorpus : public CorpusReplay {};

TEST_P(KeyCorpus, FindsNothing) { FindNothing(); }

INSTANTIATE_TEST_SUITE_P(Targets, KeyCorpus,
                         testing::Values(FuzzTarget{"key_document", CheckKeyDocument, 15},
                                         FuzzTarget{"key_extraction", CheckKeyExtraction, 12}),
                         TargetName);

}  // namespace
}  // namespace zarext::test
