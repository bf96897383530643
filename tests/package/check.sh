#!/usr/bin/env bash
# check.sh MODE BUILD_DIR
#   desktop   the desktop entry and the AppStream metadata pass their validators
#   install   an install into a temporary prefix: file type and default program through xdg-mime, both
#             manual pages through man, completion against --help, --version against the project version
#   deb       the CPack package holds exactly what an install puts in place; as root, dpkg -i makes both
#             programs work from PATH and dpkg -r leaves nothing behind
set -euo pipefail
mode=$1
build=$(cd "$2" && pwd)
id=io.github.quillon.Quillon

fail() { echo "FAIL: $*" >&2; exit 1; }
skip() {
    [ "${QUILLON_REQUIRE_PEERS:-}" = 1 ] && fail "$1 (QUILLON_REQUIRE_PEERS=1)"
    echo "SKIP: $1"
    exit 77
}
need() { for tool; do command -v "$tool" >/dev/null || skip "$tool is not installed"; done; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

install_into() { cmake --install "$build" --prefix "$1" >/dev/null; }
files_under() { (cd "$1" && find . ! -type d | sed 's|^\./||' | sort); }
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")

case $mode in
desktop)
    need desktop-file-validate appstreamcli
    install_into "$tmp/usr"
    out=$(desktop-file-validate "$tmp/usr/share/applications/$id.desktop") || fail "desktop-file-validate: $out"
    # Hints are advice; errors and warnings are not.
    if grep -v ': hint: ' <<<"$out" | grep -q .; then fail "desktop-file-validate: $out"; fi
    # validate-tree also checks that the metadata names the desktop entry and icon that are installed.
    appstreamcli validate-tree --no-net "$tmp/usr" || fail "appstreamcli validate-tree"
    ;;
install)
    need xdg-mime mimetype update-mime-database update-desktop-database man
    prefix=$tmp/usr
    share=$prefix/share
    install_into "$prefix"
    for f in bin/quillon bin/quillon-cli share/quillon/eff_large_wordlist.txt share/applications/$id.desktop \
        share/metainfo/$id.metainfo.xml share/mime/packages/$id.xml share/icons/hicolor/scalable/apps/$id.svg \
        share/man/man1/quillon.1 share/man/man1/quillon-cli.1 share/bash-completion/completions/quillon-cli; do
        [ -s "$prefix/$f" ] || fail "not installed: $f"
    done
    for size in 16 22 24 32 48 64 128 256 512; do
        png=$share/icons/hicolor/${size}x$size/apps/$id.png
        # Width and height are the big-endian words at bytes 16 and 20 of the PNG header.
        [ "$(od -An -tx1 -j16 -N8 "$png" 2>/dev/null | tr -d ' \n')" = "$(printf '%08x%08x' "$size" "$size")" ] ||
            fail "$png is not a ${size}x$size PNG"
    done

    [ "$("$prefix/bin/quillon" --version)" = "quillon $version" ] || fail "quillon --version"
    [ "$("$prefix/bin/quillon-cli" --version)" = "quillon-cli $version" ] || fail "quillon-cli --version"
    # The word list is found beside the installed program, not in the build tree.
    [ "$(env -u QUILLON_RESOURCE_DIR "$prefix/bin/quillon-cli" diceware -W 4 --separator ' ' | wc -w)" = 4 ] ||
        fail "quillon-cli diceware from the install"

    # Only the temporary prefix is visible, so the file type must come from Quillon's own definition.
    XDG_DATA_DIRS="$share" update-mime-database "$share/mime"
    update-desktop-database "$share/applications"
    mkdir -p "$tmp/home" "$tmp/config"
    printf '\x03\xd9\xa2\x9a\x67\xfb\x4b\xb5' >"$tmp/home/Passwords.kdbx"
    type=$(env -u XDG_CURRENT_DESKTOP -u DESKTOP_SESSION HOME="$tmp/home" XDG_DATA_HOME="$tmp/home/.local/share" \
        XDG_DATA_DIRS="$share" XDG_CONFIG_HOME="$tmp/config" XDG_CONFIG_DIRS="$tmp/config" \
        xdg-mime query filetype "$tmp/home/Passwords.kdbx")
    [ "$type" = application/x-keepass2 ] || fail "xdg-mime query filetype: '$type'"
    app=$(env -u XDG_CURRENT_DESKTOP -u DESKTOP_SESSION HOME="$tmp/home" XDG_DATA_HOME="$tmp/home/.local/share" \
        XDG_DATA_DIRS="$share" XDG_CONFIG_HOME="$tmp/config" XDG_CONFIG_DIRS="$tmp/config" \
        xdg-mime query default application/x-keepass2)
    [ "$app" = "$id.desktop" ] || fail "xdg-mime query default: '$app'"

    for page in quillon quillon-cli; do
        text=$(MANWIDTH=100 man --warnings -l "$share/man/man1/$page.1" 2>"$tmp/man.err") || fail "man -l $page.1"
        [ ! -s "$tmp/man.err" ] || fail "man -l $page.1: $(cat "$tmp/man.err")"
        grep -q "^ *$page - " <<<"$text" || fail "$page.1 has no NAME line"
        [ "$page" = quillon-cli ] && cli_page=$text
    done

    # Every command --help lists has its own paragraph in the manual page and completes; and each command
    # completes exactly the options its own --help shows.
    cli=$prefix/bin/quillon-cli
    commands=$("$cli" --help | sed -n '/^commands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
    [ -n "$commands" ] || fail "no commands in quillon-cli --help"
    complete_words() {
        bash -c '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _quillon_cli; printf "%s\n" "${COMPREPLY[@]}"' \
            sh "$share/bash-completion/completions/quillon-cli" quillon-cli "$@" | sort
    }
    diff <(printf '%s\n' $commands --help --version | sort) <(complete_words "") || fail "commands completed"
    for c in $commands; do
        grep -q "^ *$c\b" <<<"$cli_page" || fail "quillon-cli.1 does not describe $c"
        diff <("$cli" "$c" --help | sed -n '/^options:/,$p' | sed -E '1d; s/^ +//; s/  .*//' | tr ' ,' '\n\n' | grep '^-' | sort) \
            <(complete_words "$c" -) || fail "options completed for $c"
    done
    ;;
deb)
    need cpack dpkg-deb dpkg-shlibdeps
    start=$SECONDS
    cpack --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1 || { cat "$tmp/cpack.log"; fail cpack; }
    deb=$(echo "$tmp"/out/quillon_*.deb)
    [ -f "$deb" ] || fail "no package in $tmp/out"
    echo "package built in $((SECONDS - start)) s: $(basename "$deb")"
    depends=$(dpkg-deb -f "$deb" Depends)
    echo "Depends: $depends"
    for lib in libc6 libqt6core6 libssl3 libargon2-1 zlib1g; do
        grep -q "\b$lib\b" <<<"$depends" || fail "the package does not depend on $lib"
    done
    install_into "$tmp/inst/usr"
    diff <(files_under "$tmp/inst") <(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $6}' | sed 's|^\./||' | sort) ||
        fail "the package's files differ from what cmake --install puts in place"

    if [ "$(id -u)" -ne 0 ]; then
        [ "${QUILLON_REQUIRE_ROOT:-}" = 1 ] && fail "installing the package needs root (QUILLON_REQUIRE_ROOT=1)"
        echo "SKIP: installing the package needs root"
        exit 77
    fi
    ! dpkg-query -W -f='${Status}' quillon 2>/dev/null | grep -qx 'install ok installed' ||
        skip "a quillon package is already installed on this system; it is left alone"
    command -v quillon >/dev/null && skip "another quillon is on PATH"
    # dpkg's triggers rebuild the shared caches (file types, menu, manual pages) after both steps, so these
    # lists match only if those are rebuilt without Quillon too.
    snapshot() { find /usr /etc /opt /var/lib/dpkg/info -xdev ! -type d 2>/dev/null | sort; }
    snapshot >"$tmp/before"
    trap 'dpkg -r quillon >/dev/null 2>&1 || true; rm -rf "$tmp"' EXIT
    dpkg -i "$deb" >/dev/null || fail "dpkg -i"
    (cd / && env PATH=/usr/sbin:/usr/bin:/sbin:/bin quillon-cli --help | grep -q '^commands:') || fail "quillon-cli --help from PATH"
    (cd / && env PATH=/usr/sbin:/usr/bin:/sbin:/bin quillon --self-test >/dev/null) || fail "quillon --self-test from PATH"
    man -w quillon-cli >/dev/null || fail "man cannot find quillon-cli"
    dpkg -r quillon >/dev/null || fail "dpkg -r"
    snapshot >"$tmp/after"
    diff "$tmp/before" "$tmp/after" || fail "dpkg -r left files behind"
    ! dpkg-query -W -f='${Status}' quillon 2>/dev/null | grep -qx 'install ok installed' || fail "quillon is still installed"
    ;;
*)
    fail "unknown mode $mode"
    ;;
esac
echo "ok: $mode"
