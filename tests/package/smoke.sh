#!/usr/bin/env bash
# Smoke test of the installed Debian packages (scripts/install-packages.sh): the installed nbctl plays
# the reference host from /usr, and a small consumer builds against the installed library, once with
# find_package(NBBase) and once with pkg-config, with no extra flags, and finds the installed translations.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { echo "package smoke test: $*" >&2; exit 1; }
expect() {  # expect WHAT OUTPUT TEXT: the output holds the text
  grep -qF -- "$3" <<<"$2" || fail "$1 did not print \"$3\"; it printed:
$2"
}

echo "== nbctl host (installed)"
[[ $(command -v nbctl) == /usr/bin/nbctl ]] || fail "nbctl is not the installed /usr/bin/nbctl"
out=$(cd "$work" && HOME="$work" XDG_CONFIG_HOME="$work/config" nbctl host 2>&1) || fail "nbctl host failed:
$out"
expect "nbctl host" "$out" "folder /usr/lib/"
expect "nbctl host" "$out" "plug-ins in load order: Greeter, Reluctant"
echo "   $(wc -l <<<"$out") lines, the sample plug-ins loaded from the installed folder"

echo "== consumer built with find_package(NBBase)"
cmake -S "$here/consumer" -B "$work/cmake" -G Ninja >/dev/null
cmake --build "$work/cmake" >/dev/null
english=$(LC_ALL=C.UTF-8 "$work/cmake/consumer")
chinese=$(LC_ALL=C.UTF-8 LANGUAGE=zh_CN "$work/cmake/consumer")
expect "the consumer" "$chinese" "游戏正在维护中"
[[ "$english" != "$chinese" ]] || fail "the consumer printed the same text in English and Chinese"
echo "   $english / $chinese"

echo "== consumer built with pkg-config"
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++20 -o "$work/consumer-pc" "$here/consumer/main.cpp" $(pkg-config --cflags --libs nbbase)
[[ $(LC_ALL=C.UTF-8 LANGUAGE=zh_CN "$work/consumer-pc") == "$chinese" ]] || fail "the pkg-config build differs"
echo "   ok"
