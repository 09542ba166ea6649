// Shows the module at work, end to end. This is the watching process; it starts itself again with
// --act for every step, and prints the calls of that process and the module's trace, which it
// receives over the debugger channel.
#include <getopt.h>
#include <windows.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "demo/actors.h"
#include "demo/steps.h"
#include "demo/story.h"
#include "demo/watcher.h"

namespace {

using zarext::demo::Step;

constexpr std::array kSteps = {
    Step{"register", "Register with regsvr32", &zarext::demo::RegisterModule, true},
    Step{"certificates", "Verify certificates that OpenSSL made", &zarext::demo::VerifyCertificates,
         false},
    Step{"containers", "Make keys, certificates and a request", &zarext::demo::FillContainers,
         false},
    Step{"store", "Put certificates into the store, find one and sign", &zarext::demo::UseStore,
         false},
    Step{"envelope", "Envelope 1 MiB for two recipients", &zarext::demo::OpenEnvelopes, false},
    Step{"private-key", "Move a private key into a second container", &zarext::demo::MovePrivateKey,
         false},
    Step{"maintenance", "Install and remove certificates", &zarext::demo::MaintainStores, false},
    Step{"cache", "Show the cache of the containers", &zarext::demo::ShowCache, false},
    Step{"unregister", "Unregister, and report what stays", &zarext::demo::UnregisterModule, true},
};
// Started by other steps.
constexpr std::array kHelpers = {
    Step{"open-store", "", &zarext::demo::OpenStoreOnce, false},
};

struct Options {
  std::string act;
  bool trace = false;
  bool keep = false;
  bool valid = true;
};

Options ReadOptions(int argc, char** argv) {
  static const option kOptions[] = {{"act", required_argument, nullptr, 'a'},
                                    {"trace", no_argument, nullptr, 't'},
                                    {"keep", no_argument, nullptr, 'k'},
                                    {"certificates", required_argument, nullptr, 'c'},
                                    {nullptr, 0, nullptr, 0}};
  Options options;
  int which = 0;
  while ((which = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    options.trace |= which == 't';
    options.keep |= which == 'k';
    options.valid &= which != '?';
    if (which == 'a') {
      options.act = optarg;
    }
    if (which == 'c') {
      SetEnvironmentVariableA(zarext::demo::kCertificatesVariable, optarg);
    }
  }
  options.valid &= optind == argc;
  return options;
}

template <typename Steps>
const Step* FindStep(const Steps& steps, const std::string& name) {
  for (const Step& step : steps) {
    if (name == step.name) {
      return &step;
    }
  }
  return nullptr;
}

// The watched process. A helper's story belongs to the step that started it, which ends it.
int Act(const std::string& name) {
  const Step* const step = FindStep(kSteps, name);
  const Step* const helper = FindStep(kHelpers, name);
  if (step == nullptr && helper == nullptr) {
    return 2;
  }
  int code = 0;
  try {
    const zarext::demo::Host host;
    (step != nullptr ? step : helper)->act();
  } catch (const std::exception& error) {
    zarext::demo::Fail(error.what());
    code = 1;
  }
  if (step != nullptr) {
    zarext::demo::End();
  }
  return code;
}

int Watch(const Options& options) {
  zarext::demo::Watcher watcher(options.trace);
  zarext::demo::CleanUp();
  bool right = true;
  for (const Step& step : kSteps) {
    right = watcher.Run(step);
    if (!right) {
      break;
    }
  }
  if (!options.keep) {
    zarext::demo::CleanUp();
  }
  watcher.PrintSummary();
  std::printf("\n%s\n",
              right ? "All of it as it should be." : "Stopped at the first wrong result.");
  return right ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  SetConsoleOutputCP(CP_UTF8);
  try {
    const Options options = ReadOptions(argc, argv);
    if (!options.valid) {
      (void)std::fprintf(stderr, "usage: zarext-demo [--certificates=FOLDER] [--trace] [--keep]\n");
      return 2;
    }
    return options.act.empty() ? Watch(options) : Act(options.act);
  } catch (const std::exception& error) {
    (void)std::fprintf(stderr, "zarext-demo: %s\n", error.what());
    return 1;
  }
}
