#!/usr/bin/env bash
# What a commit must pass: format of the C++ files that change, house rules, build, quick tests. Looks at what is
# staged, not at the working tree: a file that was forgotten fails here, and unfinished work beside it does not
# disturb. Keeps the staged tree and its build in build/pre-commit, so only what changed is compiled again.
#
#   scripts/pre-commit.sh             checks what is staged now
#   scripts/pre-commit.sh --install   makes git run it before each commit (git commit --no-verify skips it)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
exec </dev/null

# Tests that take seconds each: killed processes, texts of 10 MiB, two million numbers, whole conversations, a
# broker of their own, installations. CI runs them.
slow='^(LogCrash|Hostile\.Large|Items\.NumbersAreRounded|Mqtt|soak|demo_|Install)'

fail() {
  printf 'pre-commit.sh: %s\n' "$@" >&2
  exit 1
}

# run MESSAGE COMMAND...: shows what the command printed only when it fails.
run() {
  local message=$1
  shift
  "$@" >"$work/log" 2>&1 && return
  cat "$work/log" >&2
  fail "$message"
}

install_hook() {
  local hook text
  # Stands in every checkout that shares the hooks; one whose branch lacks the script commits as before.
  text=$'#!/bin/sh\n# Installed by scripts/pre-commit.sh --install.\n[ ! -x scripts/pre-commit.sh ] || exec scripts/pre-commit.sh'
  hook=$(git rev-parse --git-path hooks)/pre-commit
  if [ -e "$hook" ] || [ -L "$hook" ]; then
    [ "$(cat "$hook" 2>&1)" = "$text" ] || fail "$hook exists and is not ours; call scripts/pre-commit.sh from it"
  else
    mkdir -p "$(dirname "$hook")"
    printf '%s\n' "$text" >"$hook"
    chmod +x "$hook"
  fi
  echo "$hook runs scripts/pre-commit.sh before each commit"
}

# Makes build/pre-commit/tree hold what is staged. Files that did not change keep their times, so that the build
# leaves them alone.
export_staged() {
  local staged
  staged=$(git write-tree) || fail "the index holds unmerged files"
  mkdir -p "$work/tree"
  GIT_INDEX_FILE=$work/index git --work-tree="$work/tree" read-tree --reset -u "$staged"
}

check_format() {
  local files
  mapfile -d '' -t files < <(git diff --cached --name-only --diff-filter=ACMR -z -- '*.cpp' '*.h')
  [ ${#files[@]} -gt 0 ] || return 0
  command -v clang-format >/dev/null || fail "clang-format is missing; run: scripts/install-deps.sh check"
  if ! (cd "$work/tree" && clang-format --dry-run --Werror -- "${files[@]}"); then
    fail "not formatted; run: scripts/check-format.sh --fix, then git add the files again"
  fi
}

# In the tree of what is staged: the working tree's own build stays as it is.
build_and_test() {
  cd "$work/tree"
  run "the build failed" cmake --preset dev -B "$work/build"
  run "the build failed" cmake --build "$work/build" -j "$JOBS"
  run "a test failed" ctest --test-dir "$work/build" -E "$slow" -j "$JOBS" --output-on-failure
  grep 'tests passed' "$work/log"
}

case "${1-}" in
  '') ;;
  --install) install_hook; exit ;;
  *) sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2 ;;
esac

work=$PWD/build/pre-commit
# shellcheck source=scripts/build-env.sh
source scripts/build-env.sh
export_staged
check_format
# Where git calls this as a hook, its variables would lead every later git astray.
mapfile -t of_git < <(git rev-parse --local-env-vars)
unset "${of_git[@]}"
"$work/tree/scripts/check-rules.py"
build_and_test
echo "pre-commit: passed in $SECONDS s"
