# shellcheck shell=bash
# A virtual machine with a kernel of its own that runs on the host's files. Sourced by scripts.

# Emulated controllers and what it takes to reach the host's files. Names as modprobe takes them;
# some are built into the kernel.
vm_modules=(virtio_pci 9pnet_virtio 9p overlay jitterentropy_rng sha512_generic drbg ctr
  ecdh_generic bluetooth ecb cmac af_alg algif_hash algif_skcipher hci_vhci)

# Debian 12's own kernel, 6.1, crashes when both ends of a link are on one host; the newer one that
# it also offers does not.
vm_kernel_package=linux-image-6.12-amd64

# vm_prepare DIRECTORY INIT: makes DIRECTORY/vmlinuz and DIRECTORY/initramfs with INIT as the first
# program. The kernel is fetched once.
vm_prepare() {
  local directory=$1 init=$2 package version tree=$1/kernel
  mkdir -p "$directory"
  if [ ! -e "$directory/vmlinuz" ]; then
    package=$(vm_newest_kernel) || {
      apt-get -qq update && package=$(vm_newest_kernel)
    } || {
      echo "There is no package $vm_kernel_package to be had" >&2
      return 1
    }
    echo "Fetching $package" >&2
    rm -rf "$tree" "$directory"/*.deb
    (cd "$directory" && apt-get -qq download "$package" 2>download.log) ||
      { cat "$directory/download.log" >&2 && return 1; }
    dpkg -x "$directory"/*.deb "$tree"
    rm "$directory"/*.deb
    version=$(basename "$tree"/lib/modules/*)
    depmod -b "$tree" "$version"
    vm_collect_modules "$tree" "$version" "$directory/initramfs.d/modules"
    cp "$tree/boot/vmlinuz-$version" "$directory/vmlinuz.new"
    rm -rf "$tree"
    mv "$directory/vmlinuz.new" "$directory/vmlinuz"
  fi

  local root=$directory/initramfs.d
  mkdir -p "$root"/{bin,proc,sys,dev,host,layer,root}
  cp "$(command -v busybox)" "$root/bin/"
  install -m 755 "$init" "$root/init"
  (cd "$root" && find . | busybox cpio -o -H newc 2>/dev/null) > "$directory/initramfs"
}

vm_newest_kernel() {
  apt-cache depends "$vm_kernel_package" 2>/dev/null | sed -n 's/.*Depends: \(linux-image-.*\)/\1/p' |
    grep -m 1 .
}

# vm_collect_modules KERNEL_TREE VERSION DIRECTORY: the modules with what they need, unpacked, and
# their order.
vm_collect_modules() {
  local file
  mkdir -p "$3"
  : > "$3/order"
  modprobe -d "$1" -S "$2" --show-depends -a "${vm_modules[@]}" |
    awk '$1 == "insmod" && !seen[$2]++ { print $2 }' | while read -r file; do
    local name
    name=$(basename "$file" .xz)
    xz -dc "$file" > "$3/$name"
    echo "$name" >> "$3/order"
  done
}

# vm_run DIRECTORY RESULTS COMMAND...: boots the machine, runs the command as its first process and
# passes on what it writes to its second serial line. RESULTS is /run/results in the guest; what
# the kernel says is in RESULTS/console.log.
vm_run() {
  local directory=$1 results=$2
  shift 2
  # Hardware virtualisation is not to be had everywhere, and hangs on some machines that offer it.
  qemu-system-x86_64 -accel tcg -cpu max -m 1024 -smp "${vm_cores:-2}" -no-reboot -nic none \
    -display none -monitor none -serial "file:$results/console.log" -serial stdio \
    -kernel "$directory/vmlinuz" -initrd "$directory/initramfs" \
    -append "console=ttyS0 quiet panic=-1 mitigations=off random.trust_cpu=on -- $*" \
    -virtfs local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap \
    -virtfs "local,path=$results,mount_tag=results,security_model=none" < /dev/null
}
