#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The simulated camera in a real kernel: boots Debian's own in a virtual machine (QEMU without any
# acceleration), plugs cameras into its virtual USB host, and checks what lsusb, uvcvideo, v4l2-ctl
# and the nyxus tool make of them. Needs nothing but a Debian 12 machine: installs, builds and
# downloads what is missing first. The virtual machine has no network.
#
#   tests/kernel/run.sh           all checks
#   tests/kernel/run.sh --soak    every size 20 times, by programs in C, C++ and Python and by the
#                                 tool, instead (most of an hour)
#   tests/kernel/run.sh --compliance   v4l2-compliance, unbinding, authorisation and suspending instead
#   tests/kernel/run.sh --keep    a shell in the machine instead
#   tests/kernel/run.sh --bench   the kernel's own way to the controls, measured beside the library's,
#                                 and queued reads beside bare libusb's (JSON on standard output;
#                                 bench/run.sh calls it)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cd "$here/../.."

preset=${NYXUS_KERNEL_PRESET:-dev}
bin=$PWD/build/$preset/bin
cache=$PWD/build/kernel
limit_s=900
mode=${1:-checks}
programs=(nyxus-sim nyxus check_frames)
targets=(nyxus-sim nyxus_tool check_frames)
case $mode in
    checks | --keep) ;;
    --compliance) limit_s=1200 ;;
    --soak)
        limit_s=7200
        programs+=(../examples/{snapshot,every_size,every_size_cpp})
        targets+=(example_{snapshot,every_size,every_size_cpp})
        ;;
    --bench)
        limit_s=1200
        preset=bench
        bin=$PWD/build/$preset/bin
        programs=(nyxus-sim bench_kernel_query bench_kernel_dump)
        targets=("${programs[@]}")
        ;;
    *) echo "usage: $0 [--soak | --compliance | --keep | --bench]" >&2; exit 2 ;;
esac

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

quietly() {
    if ! "$@" >"$work/log" 2>&1; then
        tail -n 30 "$work/log" >&2
        echo "'$*' failed; the end of its output is above." >&2
        exit 1
    fi
}

# In the order in which they are loaded.
modules=(usb-common usbip-core usbcore vhci-hcd mc videodev videobuf2-common videobuf2-v4l2
         videobuf2-memops videobuf2-vmalloc uvcvideo)

# The kernel package is unpacked, never installed.
fetch_kernel() {
    local package patterns=() module
    [ ! -f "$cache/complete" ] || return 0
    mkdir -p "$cache"
    package=$(apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
    [ -n "$package" ] || { echo "apt knows no linux-image-amd64; run 'apt-get update'." >&2; exit 1; }
    echo "Downloading $package; this happens only once." >&2
    (cd "$work" && quietly apt-get -q -o APT::Sandbox::User=root download "$package")
    for module in "${modules[@]}"; do patterns+=("*/$module.ko"); done
    rm -rf "$cache/unpacked"
    mkdir "$cache/unpacked"
    dpkg --fsys-tarfile "$work/$package"_*.deb |
        tar -x -C "$cache/unpacked" --wildcards './boot/vmlinuz*' "${patterns[@]}"
    find_uncompressed "$cache"/unpacked/boot/vmlinuz-* >"$cache/vmlinux"
    touch "$cache/complete"
}

# Under emulation the kernel takes seconds to unpack itself, so that is done here, once. The data end
# before the file does, which xz complains about.
find_uncompressed() {
    local offset
    offset=$(LC_ALL=C grep -abo "$(printf '\3757zXZ')" "$1" | head -n 1 | cut -d: -f1)
    tail -c "+$((offset + 1))" "$1" | xz -dcq 2>/dev/null || true
}

# With the libraries that it needs.
add_program() { # PATH [FOLDER]
    local path=$1 library
    cp -L "$path" "${2:-$work/root/bin}/"
    { ldd "$path" || true; } | sed -n 's/.* => \(\/[^ ]*\) .*/\1/p' | while read -r library; do
        cp -Lu "$library" "$work/root/lib/"
    done
}

# The package, an example of it, and what both import of Python's own library, which it tells here.
add_python() {
    local file to
    add_program /usr/bin/python3
    mkdir "$work/root/python"
    cp -rL "$bin/../python/nyxus" examples/every_size.py "$work/root/python/"
    add_program "$bin"/../python/nyxus/_nyxus.*.so "$work/root/python/nyxus"
    PYTHONPATH=$bin/../python:$PWD/examples \
        /usr/bin/python3 -S -B -c '
import sys, every_size
for module in list(sys.modules.values()):
    print(getattr(module, "__file__", None))' | grep ^/usr/lib | while read -r file; do
        to=$work/root${file%/*}
        mkdir -p "$to"
        case $file in
            *.so) add_program "$file" "$to" ;;
            *) cp "$file" "$to/" ;;
        esac
    done
}

# The model rowan-spi, with a film in the place of its formats.
make_h264_camera() { # FOLDER
    quietly ffmpeg -loglevel error -f lavfi -i testsrc2=size=640x480:rate=30 -frames:v 60 \
        -c:v libx264 -bsf:v h264_mp4toannexb -f h264 "$1/film.h264"
    "$bin/nyxus-sim" describe rowan-spi >"$1/h264.toml"
    printf '\n[[format]]\npixels = "H264"\nsizes = ["640x480: 30"]\nfile = "film.h264"\n' >>"$1/h264.toml"
}

make_initramfs() {
    local program module root=$work/root
    mkdir -p "$root"/{bin,lib,lib64,modules,proc,sys,dev,tmp,root,run} "$root/var" "$root/usr/share"
    ln -s /run "$root/var/run"
    cp /bin/busybox "$root/bin/"
    cp -L /lib64/ld-linux-x86-64.so.2 "$root/lib64/"
    for program in "${programs[@]/#/$bin/}" /usr/bin/{lsusb,v4l2-ctl,v4l2-compliance,uvcdynctrl,ffmpeg} /usr/sbin/usbip; do
        add_program "$program"
    done
    [ "$mode" != --soak ] || add_python
    for module in "${modules[@]}"; do
        find "$cache/unpacked/lib" -name "$module.ko" -exec cp {} "$root/modules/" \;
        echo "$module" >>"$root/modules/order"
    done
    "$bin/nyxus-sim" image --model rowan-spi --version 0x0205 "$root/image.bin"
    "$bin/nyxus-sim" image --model rowan-spi --version 0x0206 --seed 2 "$root/other.bin"
    make_h264_camera "$root"
    cp "$here/init" "$here"/{common,checks,compliance,bench}.sh "$root/"
    chmod +x "$root/init"
    (cd "$root" && find . | cpio --quiet -o -H newc) >"$work/initramfs"
}

# A pass is 1: the machine itself says 2n + 1, and 0 is a death without a word.
boot() {
    # On a busy machine the emulated timer interrupts come too late for the kernel's check of them.
    local arguments="quiet panic=-1 oops=panic no_timer_check"
    # shellcheck disable=SC2054 # QEMU's commas
    local machine=(qemu-system-x86_64 -accel tcg -cpu max -m 2048 -nodefaults -no-user-config
                   -display none -no-reboot -device isa-debug-exit,iobase=0xf4,iosize=1
                   -kernel "$cache/vmlinux" -initrd "$work/initramfs")
    if [ "$mode" = --keep ]; then
        "${machine[@]}" -serial mon:stdio -append "console=ttyS0 $arguments shell" || true
        return 0
    fi
    [ "$mode" != --soak ] || arguments+=" soak"
    [ "$mode" != --compliance ] || arguments+=" compliance"
    # Time there is instructions, so that what else this machine does changes no figure.
    [ "$mode" != --bench ] || machine+=(-icount shift=0,sleep=off)
    [ "$mode" != --bench ] || arguments+=" bench${NYXUS_BENCH_QUICK:+ quick}"
    timeout --foreground -k 5 "$limit_s" "${machine[@]}" -monitor none -serial "file:$work/console" -serial stdio \
        -append "console=ttyS0 $arguments" </dev/null | sed -u 's/\r//g'
    return "${PIPESTATUS[0]}"
}

packaging/install-packages.sh build run kernel >&2
[ -f "build/$preset/build.ninja" ] || quietly cmake --preset "$preset"
quietly cmake --build --preset "$preset" --target "${targets[@]}"
fetch_kernel
make_initramfs
code=0
boot || code=$?
case $code in
    0) [ "$mode" = --keep ] && exit 0; echo "The virtual machine died; its last words:" ;;
    1) exit 0 ;;
    3) exit 1 ;;
    124 | 137) echo "The virtual machine took longer than $limit_s s; its last words:" ;;
    *) echo "QEMU ended with code $code; the machine's last words:" ;;
esac
tail -n 40 "$work/console"
exit 1
