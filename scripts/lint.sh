#!/usr/bin/env bash
# clang-tidy over src/ with the checks of .clang-tidy; exits non-zero on any finding. It takes
# about two minutes on 2 cores (a ctest entry runs it). Installs clang-tidy when it is missing,
# configures a build tree of
# its own (build-lint) to get the compile commands, and rewrites them for clang: clang 14 does not
# find MinGW's C++ library by itself, so every system folder is named (GCC's 12-posix C++
# headers, clang's own headers, MinGW's headers).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh clang-tidy
build=build-lint
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DUPDATER_BUILD_TESTS=OFF >/dev/null
mkdir -p "$build/clang"
python3 - "$build" "$(clang-tidy --version | sed -n 's/.*version \([0-9]*\)\..*/\1/p')" <<'PYTHON'
import glob, json, shlex, sys
build, major = sys.argv[1], sys.argv[2]
cxx = "/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++"
folders = [cxx, cxx + "/x86_64-w64-mingw32", cxx + "/backward",
           glob.glob("/usr/lib/llvm-%s/lib/clang/*/include" % major)[0],
           "/usr/x86_64-w64-mingw32/include"]
gcc_only = {"-Wduplicated-cond", "-Wlogical-op", "-Wuseless-cast"}
entries = []
for entry in json.load(open(build + "/compile_commands.json")):
    if "/src/" not in entry["file"] or not entry["file"].endswith(".cpp"):
        continue
    arguments = [a for a in shlex.split(entry["command"])[1:] if a not in gcc_only]
    entries.append({"directory": entry["directory"], "file": entry["file"],
                    "arguments": ["clang++", "--target=x86_64-w64-mingw32", "-nostdinc"] +
                                 [a for f in folders for a in ("-isystem", f)] + arguments})
json.dump(entries, open(build + "/clang/compile_commands.json", "w"), indent=1)
PYTHON
find src -name '*.cpp' | sort |
  xargs -P "$(nproc)" -n 1 clang-tidy -p "$build/clang" --quiet 2>/dev/null | tee "$build/findings.txt"
findings=$(grep -c ': \(warning\|error\):' "$build/findings.txt" || true)
echo "clang-tidy: $findings finding(s) in src/"
[ "$findings" -eq 0 ]
