#!/usr/bin/env bash
# package_test.sh PRESET: makes the package, unpacks it into an empty folder, checks what is in it, and
# builds and runs package_program.c with its header, import library and DLL.
set -euo pipefail
source=$(cd "$(dirname "$0")/../.." && pwd)
fail() { echo "FAILED: $*" >&2; exit 1; }

archive=$source/$("$source/script/package" "$1" | tail -n 1)
work=$(mktemp -d -p "$source/build")
trap 'rm -rf "$work"' EXIT
cd "$work"
(cd "$(dirname "$archive")" && sha256sum --quiet -c "$archive.sha256") || fail "the sum of the zip"
cmake -E tar xf "$archive"
cd zarext-*

expected="SHA256SUMS
ZAREXT.dll
ZAREXT.dll.debug
docs/compatibility.md
docs/install.md
docs/reference.md
include/zarext.h
lib/libZAREXT.dll.a
licences/GPL-3.txt
licences/README.txt
licences/gcc-runtime.txt
licences/mingw-w64-runtime.txt"
found=$(find . -type f -printf '%P\n' | LC_ALL=C sort)
[ "$found" = "$expected" ] || fail "the list of files: $found"
sha256sum --quiet -c SHA256SUMS || fail "a file's sum"
[ "$(wc -l <SHA256SUMS)" -eq 11 ] || fail "a file without a sum"
grep -q 'GCC RUNTIME LIBRARY EXCEPTION' licences/gcc-runtime.txt || fail "no runtime library exception"
grep -q 'winpthreads' licences/mingw-w64-runtime.txt || fail "no notice of winpthreads"
grep -q 'GNU GENERAL PUBLIC LICENSE' licences/GPL-3.txt || fail "no licence text"
# Every document that a document of the package links to is in it.
while IFS=: read -r document target; do
  [ -f "$(dirname "$document")/${target%%#*}" ] || fail "$document links to $target"
done < <(grep -oHE '\]\([^)#:]+' docs/*.md | sed 's/\](//')

# The DLL brings its runtimes along, and a debugger finds the symbols.
imports=$(x86_64-w64-mingw32-objdump -p ZAREXT.dll | sed -n 's/^\tDLL Name: //p' | LC_ALL=C sort | tr '\n' ' ')
[ "$imports" = "ADVAPI32.dll CRYPT32.dll KERNEL32.dll msvcrt.dll " ] || fail "imports: $imports"
x86_64-w64-mingw32-objdump -s -j .gnu_debuglink ZAREXT.dll | grep 'ZAREXT.dll.deb' >/dev/null || fail "no debug link"
x86_64-w64-mingw32-nm ZAREXT.dll.debug | grep ' T SetOtherCert$' >/dev/null || fail "no symbols"

# C and C++, with every warning.
warnings=(-Wall -Wextra -Wpedantic -Werror)
echo '#include "zarext.h"' >header.cpp
x86_64-w64-mingw32-g++-posix -std=c++20 "${warnings[@]}" -Iinclude -fsyntax-only header.cpp
x86_64-w64-mingw32-gcc-posix -std=c11 "${warnings[@]}" -Iinclude -o program.exe \
  "$source/tests/e2e/package_program.c" lib/libZAREXT.dll.a -lcrypt32
openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -subj "/CN=Package test" -days 2 \
  -outform DER -out certificate.der 2>/dev/null
"$source/script/run-wine" program.exe certificate.der
