#include "unit/corpus_replay.h"
#include "unit/outside_properties.h"

namespace zarext::test {
namespace {

class OutsideCorpus : public CorpusReplay {};

TEST_P(OutsideCorpus, FindsNothing) { FindNothing(); }

INSTANTIATE_TEST_SUITE_P(Targets, OutsideCorpus,
                         testing::Values(FuzzTarget{"shared_block", CheckSharedBlock, 35},
                                         FuzzTarget{"key_records", CheckKeyRecords, 30},
                                         FuzzTarget{"key_blobs", CheckKeyBlobs, 60}),
                         TargetName);

}  // namespace
}  // namespace zarext::test
