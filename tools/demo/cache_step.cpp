// Step 8: the listing of the containers is kept for a minute.
#include <string>
#include <utility>

#include "demo/actors.h"
#include "demo/provider_store.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "demo/watcher.h"
#include "support/child_process.h"

namespace zarext::demo {
namespace {

constexpr char kWalk[] = "load_certs_from_CSP : URL = profile://demo-national";
constexpr char kEntry[] = "szwContainer = profile://demo-national/?sn=175A02";

}  // namespace

void ShowCache() {
  Note("the first time, the containers are walked");
  auto store = OpenStore();
  ExpectTraced(kWalk);
  ExpectTraced(kEntry);
  Note("a second store of the same process gets the same listing without a walk");
  auto second = OpenStore();
  ExpectNotTraced(kWalk);
  ExpectTraced(kEntry);
  Expect(List(second).contains(kNational.container), "it holds the same certificates");
  CloseStore(std::move(second));

  Note("a second process sees the time of the listing in the shared section, but takes no entries");
  const auto process = test::ChildProcess::Program(ActCommandLine("open-store"));
  ExpectCode(0, process.Wait().value_or(STILL_ACTIVE), "the second process found it all, too");
  CloseStore(std::move(store));
}

void OpenStoreOnce() {
  auto store = OpenStore();
  ExpectTraced(kWalk);
  ExpectTraced(kEntry);
  CloseStore(std::move(store));
}

}  // namespace zarext::demo
