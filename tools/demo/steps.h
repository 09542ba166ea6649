// The steps of the story. Each throws at the first wrong result.
#ifndef ZAREXT_TOOLS_DEMO_STEPS_H_
#define ZAREXT_TOOLS_DEMO_STEPS_H_

namespace zarext::demo {

// These two run in the watching process: the second compares the registry with what the first saw.
void RegisterModule();
void UnregisterModule();

// Each of these runs in a process of its own, because the framework reads what is registered when
// it is loaded, and as a new user's program would meet it.
void VerifyCertificates();
void FillContainers();
void UseStore();
void OpenEnvelopes();
void MovePrivateKey();
void MaintainStores();
void ShowCache();
// The second process of the cache's step.
void OpenStoreOnce();
// Deletes the demo's containers.
void CleanUp();

}  // namespace zarext::demo

#endif  // ZAREXT_TOOLS_DEMO_STEPS_H_
