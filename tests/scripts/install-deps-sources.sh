#!/usr/bin/env bash
# install-deps derives its deb-src entries from apt's configured deb entries: both file formats, options,
# disabled and source-only entries, inline keys, and the filter by URI.
set -euo pipefail
script=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir -p "$dir/sources.list.d"
cat >"$dir/sources.list" <<'LIST'
# a comment
deb [arch=amd64 signed-by=/keys/one.gpg] http://mirror.test/debian/ stable main contrib # trailing
deb-src http://mirror.test/debian stable main
deb http://flat.test/repo ./
LIST
cat >"$dir/sources.list.d/a.sources" <<'SOURCES'
Types: deb deb-src
URIs: http://proxy.test/debian http://other.test/debian
Suites: stable stable-updates
Components: main
Signed-By:
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 AAAA
 -----END PGP PUBLIC KEY BLOCK-----

# disabled
Types: deb
URIs: http://off.test/debian
Suites: stable
Components: main
Enabled: no

Types: deb-src
URIs: http://src-only.test/debian
Suites: stable
Components: main
SOURCES
echo 'deb http://ignored.test/x stable main' >"$dir/sources.list.d/not-a-list.txt"

expect_all='Types: deb-src
URIs: http://mirror.test/debian/
Suites: stable
Components: main contrib
Signed-By: /keys/one.gpg

Types: deb-src
URIs: http://flat.test/repo
Suites: ./

Types: deb-src
URIs: http://proxy.test/debian
Suites: stable
Components: main
Signed-By: 
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 AAAA
 -----END PGP PUBLIC KEY BLOCK-----

Types: deb-src
URIs: http://proxy.test/debian
Suites: stable-updates
Components: main
Signed-By: 
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 AAAA
 -----END PGP PUBLIC KEY BLOCK-----

Types: deb-src
URIs: http://other.test/debian
Suites: stable
Components: main
Signed-By: 
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 AAAA
 -----END PGP PUBLIC KEY BLOCK-----

Types: deb-src
URIs: http://other.test/debian
Suites: stable-updates
Components: main
Signed-By: 
 -----BEGIN PGP PUBLIC KEY BLOCK-----
 .
 AAAA
 -----END PGP PUBLIC KEY BLOCK-----'
expect_one='Types: deb-src
URIs: http://mirror.test/debian/
Suites: stable
Components: main contrib
Signed-By: /keys/one.gpg'

status=0
check() {
    if [ "$2" != "$3" ]; then
        echo "$1: got"; echo "$2"; echo "--- wanted"; echo "$3"
        status=1
    fi
}
check "all entries" "$(QUILLON_APT_DIR=$dir "$script" --print-deb-src)" "$expect_all"
check "one URI" "$(QUILLON_APT_DIR=$dir "$script" --print-deb-src http://mirror.test/debian)" "$expect_one"
check "no entries" "$(QUILLON_APT_DIR=$dir/none "$script" --print-deb-src)" ""
exit $status
