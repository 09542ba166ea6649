// The module's version: the one place that the resource script, the package and the docs read.
#ifndef ZAREXT_VERSION_H_
#define ZAREXT_VERSION_H_

#define ZAREXT_VERSION_NUMBERS 1, 0, 0, 0
#define ZAREXT_VERSION_TEXT "1.0.0"

#endif  // ZAREXT_VERSION_H_
