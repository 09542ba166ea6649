// What the framework of the tests lacks around certificate stores, each found out by calling it: a
// harmless call in memory, which leaves nothing behind. A Wine that has closed a gap is used as it
// is.
#ifndef ZAREXT_TESTS_SUPPORT_STORE_GAPS_H_
#define ZAREXT_TESTS_SUPPORT_STORE_GAPS_H_

namespace zarext::test {

// CertEnumCertificatesInStore, given a certificate that was deleted meanwhile, gives the same
// again: a walk that deletes never ends.
bool EnumerationRepeatsADeletedCertificate();

// CertDeleteCertificateFromStore leaves the caller's reference alive.
bool DeletionKeepsTheReference();

// Adding a certificate that the store has leaves a reference alive: a store of the registry, which
// is written with its last reference, would never be.
bool AddingAgainLeaksAReference();

// The store that a provider filled is closed by the framework, also where the provider's close
// callback has closed it. On Windows only called in a process that may end with it: the callback's
// close is the only one there, and what the call would do is not known. For the process one store
// provider more is installed.
bool StoreIsClosedBehindTheCallback();

}  // namespace zarext::test

#endif  // ZAREXT_TESTS_SUPPORT_STORE_GAPS_H_
