#!/bin/bash
# Compiles one C file and links it for the given architectures into one Mach-O file.
#
#   link.sh OUTPUT SOURCE "ARCH..." [argument...]
#
# Arguments that start with -D go to the compiler, all others to the linker. MIN is the lowest
# system version (default 9.0), PLATFORM the platform (default ios).
set -eu
output=$1 source=$2 archs=$3
shift 3
here=$(cd "$(dirname "$0")" && pwd)
min=${MIN:-9.0} platform=${PLATFORM:-ios}

compile=(-Os -g0 -ffreestanding -fno-stack-protector)
link=(-headerpad 0x1000)
for argument in "$@"; do
  case $argument in
    -D*) compile+=("$argument") ;;
    *) link+=("$argument") ;;
  esac
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
slices=()
for arch in $archs; do
  flags=()
  # The linker knows no 32-bit ARM relocations: leave out every table that would need one.
  if [ "$arch" = armv7 ]; then
    flags=(-mthumb -fno-unwind-tables -fno-asynchronous-unwind-tables)
  fi
  "${CLANG:-clang}" -target "$arch-apple-$platform$min" "${compile[@]}" "${flags[@]}" \
    -c "$source" -o "$scratch/$arch.o"
  "${LD64_LLD:-ld64.lld}" -arch "$arch" -platform_version "$platform" "$min" 12.0 "${link[@]}" \
    -o "$scratch/$arch" "$scratch/$arch.o" "$here/stubs/libSystem.tbd" "$here/stubs/Foundation.tbd"
  slices+=("$scratch/$arch")
done
mkdir -p "$(dirname "$output")"
if [ ${#slices[@]} = 1 ]; then
  cp "${slices[0]}" "$output"
else
  "${LIPO:-lipo}" "${slices[@]}" -create -output "$output"
fi
chmod 755 "$output"
