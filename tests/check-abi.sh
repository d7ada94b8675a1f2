#!/bin/bash
# Compares what both libraries promise to programs that were built with them
# (docs/abi.md) with the description of the last release in packaging/abi: the
# names that they export, the virtual tables of their classes, and by abidiff
# every type of their public headers.
#
#   tests/check-abi.sh [SOURCE [BUILD]]   compare
#   tests/check-abi.sh --store            describe: when a version is released
#   tests/check-abi.sh --prove            whether made-up changes are found, minutes
#
# Exit status 1 when a program could break although the SONAME is the same.
# What is only added passes.
set -eu
export LC_ALL=C
cd "$(dirname "$0")/.."
what=compare
case ${1-} in --*) what=${1#--}; shift ;; esac
source=${1:-.}
build=${2:-build/dev}
described=$PWD/packaging/abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
declare -A lists=([KQFileTransService]=KQFT_PUBLIC_HEADERS [kqft]=KQFT_PUBLIC_TRANSFER_HEADERS)

# The names of a library; templates of the standard library that happen to be
# instantiated in it are nobody's business.
names() { # FILE
  echo "$(readelf -d "$1" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')"
  nm -D --defined-only "$1" | awk '$2 != "A" && $3 !~ /^_Z.*6SState|^_Z(T[ISV]|Z|GV)?N?K?(S|9__gnu_cxx)/ { print $3 }' | sort
}

# A library with a function for each type of the public headers, which is what
# abidiff goes by.
types() { # SOURCE BUILD LIBRARY TO
  local headers
  headers=$(sed -n "/^set(${lists[$3]}\$/,/)/p" "$1/cmake/PublicHeaders.cmake" | grep -o '[a-z]*/[A-Za-z]*\.h')
  {
    # shellcheck disable=SC2086 # a list of words on purpose
    printf '#include "%s"\n' $headers
    (cd "$1" && sed -n '/^template/{n;d}; s/^\(class\|struct\) \(KQFT_[A-Z_]* \)\{0,1\}\([A-Za-z_]*\) .*{.*/\3/p' $headers) |
      while read -r type; do echo "extern \"C\" void Takes$type($type*) {}"; done
  } >"$work/types.cpp"
  grep -q Takes "$work/types.cpp"
  g++ -std=c++17 -g -shared -fPIC -fdump-lang-class="$work/classes" -I "$1" -I "$2/generated" \
    "$work/types.cpp" -o "$4"
}

# The virtual functions of our classes with their places, from that; abidiff
# looks only at those that are compiled.
virtuals() {
  awk '/^Vtable for / { ours = !/std::|__/ && /^Vtable for [A-Z]/ } /^$/ { ours = 0 }
    ours && !/^Vtable/ { sub(/\(int \(\*\)\(\.\.\.\)\)/, ""); $1 = $1; print class, $0 }
    ours && /^Vtable/ { class = $3 }' "$work/classes" | sort
}

describe() { # SOURCE BUILD LIBRARY: $work/names and $work/types.so
  types "$1" "$2" "$3" "$work/types.so"
  { names "$2/lib/lib$3.so"; virtuals; } >"$work/names"
}

compare() { # SOURCE BUILD
  local library lost result=0
  for library in "${!lists[@]}"; do
    describe "$1" "$2" "$library"
    if [ "$(head -1 "$work/names")" != "$(head -1 "$described/$library.names")" ]; then
      echo "$library: $(head -1 "$work/names") promises nothing of what was before"
      continue
    fi
    lost=$(comm -23 <(sort "$described/$library.names") <(sort "$work/names"))
    [ -z "$lost" ] || { echo "$library has lost:"; c++filt <<<"$lost"; result=1; }
    xz -dc "$described/$library.abi.xz" >"$work/before.abi"
    abidiff --no-added-syms "$work/before.abi" "$work/types.so" || result=1
  done
  return $result
}

# Whether a change, made in both libraries, is called a break (1) or not (0).
prove() { # RESULT WHAT, then SED FILES for each library
  local expected=$1 change=$2 library found copy=$work/copy
  shift 2
  rm -rf "$copy"
  mkdir "$copy"
  git ls-files -z | xargs -0 cp --parents -t "$copy"
  # shellcheck disable=SC2086 # several files
  (cd "$copy" && sed -i "$1" $2 && sed -i "$3" $4)
  cmake -G Ninja -S "$copy" -B "$work/build" -DKQFT_BUILD_TESTS=OFF -DKQFT_BUILD_PROGRAMS=OFF \
    -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=10 >"$work/log" 2>&1 &&
    cmake --build "$work/build" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
  for library in KQFileTransService kqft; do
    found=0
    (lists=([$library]=${lists[$library]}); compare "$copy" "$work/build") >"$work/log" 2>&1 || found=1
    if [ $found = "$expected" ]; then
      echo "$library, $change: $([ $found = 1 ] && echo 'a break, found' || echo 'no break')"
    else
      echo "$library, $change: WRONG"
      cat "$work/log"
      failed=1
    fi
  done
}

case $what in
  compare) compare "$source" "$build" ;;
  store)
    for library in "${!lists[@]}"; do
      describe . "$build" "$library"
      cp "$work/names" "$described/$library.names"
      abidw --no-corpus-path --no-comp-dir-path "$work/types.so" | xz -9 >"$described/$library.abi.xz"
    done
    ;;
  prove)
    failed=0
    sources=$(git ls-files '*.h' '*.cpp' | grep -v ^tests/)
    prove 0 'nothing changed' '' README.md '' README.md
    # shellcheck disable=SC2016 # of sed
    prove 0 'an operation added' \
      '$a KQFT_API int MadeUp(); int MadeUp() { return 1; }' client/Upload.cpp \
      '$a KQFT_TRANSFER_API int MadeUp2(); int MadeUp2() { return 1; }' transfer/Get.cpp
    prove 1 'an operation removed' \
      's/\bStopTrans\b/StopIt/' "$sources" 's/\bTakenBy\b/TakenByWhom/' "$sources"
    prove 1 'a struct changed' \
      '/^struct STransferState/a int m_nMadeUp = 0;' client/TransferState.h \
      '/^struct SPutRequest/a int m_nMadeUp = 0;' transfer/ProjectClient.h
    prove 1 'a virtual function in the middle' \
      's/^  virtual void ReceiveFileFromServer/  virtual void MadeUp() {}\n&/' \
      client/KQFileTransServiceClient.h \
      '0,/^  virtual [^~]*(/s//  virtual void MadeUp() {}\n&/' transfer/TransferObserver.h
    exit $failed
    ;;
esac
