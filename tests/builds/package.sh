#!/usr/bin/env bash
# The installed library, static and shared, as another project meets it.
# shellcheck source=tests/builds/checks.sh
. "$(dirname "$0")/checks.sh"

install_and_move() {
  configure_library -B "$work/$kind" -DBUILD_SHARED_LIBS="$shared" \
    -DCMAKE_INSTALL_PREFIX="$work/$kind-first" -DCMAKE_INSTALL_LIBDIR="$libdir"
  cmake --build "$work/$kind" --parallel "$jobs"
  cmake --install "$work/$kind"
  mv "$work/$kind-first" "$prefix"
}

find_by_cmake() {
  cmake -S "$source_dir/tests/consumer" -B "$work/$kind-consumer" -DCMAKE_PREFIX_PATH="$prefix"
  cmake --build "$work/$kind-consumer"
  "$work/$kind-consumer/consumer"
}

# pc ARGUMENTS...: what pkg-config says about the libraries in $pc_dir, and there alone.
pc() { PKG_CONFIG_LIBDIR=$pc_dir pkg-config "$@" korvain_line_protocol korvain_statistic; }

find_by_pkg_config() {
  # shellcheck disable=SC2046  # the flags are words
  g++ -std=c++17 "$source_dir/tests/consumer/consumer.cpp" -o "$work/consumer_pc" \
    $(pc --cflags --libs)
  LD_LIBRARY_PATH=$(pc --variable=libdir | cut -d ' ' -f 1) "$work/consumer_pc"
}

# A C program that links the archive has to be told of the C++ library; nobody else is.
link_with_private_libraries() {
  # shellcheck disable=SC2046
  g++ -std=c++17 -c "$source_dir/tests/consumer/consumer.cpp" -o "$work/consumer.o" $(pc --cflags)
  # shellcheck disable=SC2046
  gcc "$work/consumer.o" -o "$work/consumer_static" $(pc --static --libs)
  "$work/consumer_static"
  pc --libs >"$work/libs.txt"
  none_of -lstdc++ "$work/libs.txt"
}

include_all_headers() {
  local include=$prefix/include/korvain_statistic
  (cd "$include" && find . -name '*.h' -printf '#include <%P>\n') >"$work/all.cpp"
  grep -q objslab.h "$work/all.cpp"
  g++ -std=c++17 -fsyntax-only -I"$include" "$work/all.cpp"
}

install_no_private_header() {
  (cd "$prefix" && find . -path '*/detail/*') >"$work/private.txt"
  cat "$work/private.txt"
  [ "$(sed 's#.*/##' "$work/private.txt")" = probe_table.h ]
}

# One of each public header that has any.
export_public_symbols_alone() {
  local name
  list_exported "$prefix/$libdir/libkorvain_statistic.so"
  for name in objslab_new CBidirList::Merge KorvainService::{GetCurrentMilliseconds,UDPClient::Send} \
    KorvainService::{JudgeProxy,UDPClientMgr}::Update KorvainService::MapAccessIndex::Insert \
    KorvainService::{KorvainServiceStatisticMgr::AddAccess,LatencyDataMgr::PushBack}; do
    echo "$name"
    grep -qE "^$name(\(|$)" "$work/exported.txt"
  done
  none_of '^KorvainService::detail' "$work/exported.txt"
  # An instantiated template is written with its result in front.
  grep -vE '^(int )?(KorvainService::|objslab_|CBidirList::)' "$work/exported.txt" \
    >"$work/other.txt" || true
  none_of . "$work/other.txt"
}

export_the_packers_functions_alone() {
  local functions='KorvainService::(AppendReport|PackReport|SplitIntoDatagrams)'
  list_exported "$prefix/$libdir/libkorvain_line_protocol.so"
  [ "$(grep -cE "^$functions" "$work/exported.txt")" -eq 3 ]
  # A constant of the header, which a build without optimisation puts into the library.
  grep -vE "^($functions|KorvainService::MAX_UDP_PAYLOAD$)" "$work/exported.txt" \
    >"$work/other.txt" || true
  none_of . "$work/other.txt"
}

install_to_absolute_libdir() {
  pc_dir=$work/absolute/pkgconfig
  prefix=$work/static-absolute
  configure_library -B "$work/static" -DCMAKE_INSTALL_LIBDIR="$work/absolute" \
    -DCMAKE_INSTALL_PREFIX="$prefix"
  cmake --build "$work/static" --parallel "$jobs"
  cmake --install "$work/static"
  find_by_pkg_config
  kind=absolute
  prefix=$work/absolute/cmake
  find_by_cmake
}

check_kind() {
  kind=$1 shared=$2 libdir=$3
  prefix=$work/$kind-moved
  pc_dir=$prefix/$libdir/pkgconfig
  check "$kind: installs below $libdir, and is moved" install_and_move
  check "$kind: find_package finds it" find_by_cmake
  check "$kind: pkg-config finds it" find_by_pkg_config
  check "$kind: the installed headers need no other of the project's" include_all_headers
  check "$kind: no private header is installed" install_no_private_header
}

check_kind static OFF lib
check "static: pkg-config names private libraries for static linking" link_with_private_libraries
check "static: installs to an absolute library directory" install_to_absolute_libdir
check_kind shared ON "lib/$(g++ -print-multiarch)"
check "shared: exports the public headers' symbols and no other" export_public_symbols_alone
check "shared: so does the packer" export_the_packers_functions_alone
finish
