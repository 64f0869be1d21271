# shellcheck shell=bash disable=SC2154 # cache and here are those of tests/router/run
# Sourced by tests/router/run: builds the parts that the router is made of, from the distribution's sources. Each part
# has a folder in the cache, whose name is derived from everything that the part was made from. A folder that is there
# already is used as it is.

cross=mips-linux-gnu-
jobs=${TORVANE_ROUTER_JOBS:-$(nproc)}

# Sets up package lists in the cache, sources included, that come from the machine's own mirrors. The machine's own
# lists stay as they are.
apt_options=()
set_up_apt() {
  local dir=$cache/apt codename
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mkdir -p "$dir/lists/partial" "$dir/archives/partial" "$dir/parts"
  apt_options=(-q -o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$dir/parts" -o "Dir::State::Lists=$dir/lists"
    -o "Dir::Cache=$dir" -o APT::Sandbox::User=root)
  local file
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -r "$file" ] || continue
    awk -v code="$codename" '$1 == "deb" {
        suite = ($2 ~ /^\[/) ? 0 : 3
        for (i = 2; !suite && i <= NF; i++) if ($i ~ /\]$/) suite = i + 2
        if ($suite == code || index($suite, code "-") == 1) { print; sub(/^deb/, "deb-src"); print }
      }' "$file"
  done >"$dir/parts/machine.list"
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -r "$file" ] || continue
    awk -v RS= -v code="$codename" '$0 ~ "(^|\n)Suites:[^\n]*[ \t]" code "([- \t\n]|$)" {
        sub(/(^|\n)Types:[^\n]*/, "\nTypes: deb deb-src")
        sub(/^\n/, ""); print $0 "\n"
      }' "$file"
  done >"$dir/parts/machine.sources"
}

# Fetches the package lists once in a run, and only when something has to be built, because an old list names files that
# the mirrors no longer have.
lists_updated=no
update_lists() {
  [ $lists_updated = no ] || return 0
  lists_updated=yes
  step "fetching package lists"
  apt-get "${apt_options[@]}" update >"$cache/update.log" 2>&1 </dev/null ||
    step "the package lists could not all be fetched: $cache/update.log"
}

# version_of PACKAGE KIND: prints the version of the package in the lists of that kind (Packages or Sources).
version_of() {
  apt-cache "${apt_options[@]}" madison "$1" 2>/dev/null | awk -v kind="$2" '$NF == kind { print $3; exit }'
}

# source_of PACKAGE: fetches the package's source and unpacks it into the folder `source` in the current folder.
source_of() {
  apt-get "${apt_options[@]}" source --download-only "$1" && dpkg-source --no-check -x ./*.dsc source
}

# folder_of NAME KIND PACKAGE FILE...: prints the part's folder for what it would be made from now: the version of the
# package, the compiler, the files and the function that builds it.
folder_of() {
  local name=$1 kind=$2 package=$3 key
  shift 3
  key=$({ version_of "$package" "$kind" && "${cross}gcc" -dumpfullversion && cat /dev/null "$@" && declare -f "${name}_build"; } |
    sha256sum | cut -c1-16)
  echo "$cache/$name-$key"
}

# part NAME KIND PACKAGE FILE...: sets `part_NAME` to the part's folder. If that is not there, NAME_build is run in an
# empty work folder, and what it leaves in `made` becomes the part's folder. NAME_build finds in `folder` where that
# will be.
part() {
  local name=$1 package=$3 folder work started=$SECONDS
  folder=$(folder_of "$@")
  if [ ! -d "$folder" ]; then
    update_lists
    folder=$(folder_of "$@")
  fi
  declare -g "part_$name=$folder"
  [ -d "$folder" ] && return
  step "building $name"
  work=$cache/work-$name
  rm -rf "$work" && mkdir -p "$work/made" || return
  # This is a job, because a shell ignores -e inside a condition.
  (
    set -e
    cd "$work"
    "${name}_build"
  ) >"$cache/$name.log" 2>&1 </dev/null &
  if ! wait $!; then
    tail -n 30 "$cache/$name.log" >&2
    die "$name could not be built; all of it is in $cache/$name.log"
  fi
  rm -rf "$cache/$name"-????????????????
  mv "$work/made" "$folder" && rm -rf "$work"
  step "built $name in $((SECONDS - started)) s"
}

kernel_build() {
  apt-get "${apt_options[@]}" download linux-source-6.1
  dpkg-deb --fsys-tarfile linux-source-6.1_*.deb | tar -xO ./usr/src/linux-source-6.1.tar.xz | xz -dc -T0 |
    tar -x --exclude='*/Documentation/*.rst' --exclude='*/Documentation/*.yaml' --exclude='*/arch/[a-lo-z]*/*.[chS]' \
      --exclude='*/arch/arm*/boot/dts/*' --exclude='*/tools/testing/*'
  local make=(nice -n 19 make -s -C linux-source-6.1 ARCH=mips "CROSS_COMPILE=$cross" O="$PWD/objects")
  KCONFIG_ALLCONFIG=$here/kernel.config "${make[@]}" allnoconfig
  local wanted lost=0
  while read -r wanted; do
    grep -qx "$wanted" objects/.config || { echo "not taken: $wanted" && lost=1; }
  done < <(grep '^CONFIG' "$here/kernel.config")
  ((lost == 0))
  "${make[@]}" -j"$jobs" vmlinux
  ${cross}strip -o made/vmlinux objects/vmlinux
}

iproute2_build() {
  source_of iproute2
  nice -n 19 make -s -C source -j"$jobs" CC=${cross}gcc AR=${cross}ar HOSTCC=gcc PKG_CONFIG=false SHARED_LIBS=n \
    LDFLAGS=-static SUBDIRS="lib tc ip"
  ${cross}strip -o made/tc source/tc/tc
  ${cross}strip -o made/ip source/ip/ip
}

iptables_build() {
  source_of iptables
  cd source
  nice -n 19 ./configure --host=mips-linux-gnu --disable-nftables --disable-shared --enable-static --disable-connlabel
  nice -n 19 make -s -j"$jobs" LDFLAGS=-all-static SUBDIRS="libiptc libxtables extensions iptables"
  ${cross}strip -o ../made/xtables-legacy-multi iptables/xtables-legacy-multi
}

# Busybox is built without its own tc and ip, because its shell would run those in place of the real ones.
busybox_build() {
  source_of busybox
  local make=(nice -n 19 make -s -C source ARCH=mips "CROSS_COMPILE=$cross")
  "${make[@]}" defconfig
  sed -i -e 's/^# CONFIG_STATIC is not set/CONFIG_STATIC=y/' -e 's/^CONFIG_TC=y/# CONFIG_TC is not set/' \
    -e 's/^CONFIG_IP=y/# CONFIG_IP is not set/' source/.config
  yes '' | "${make[@]}" oldconfig || true
  "${make[@]}" -j"$jobs" busybox
  cp source/busybox made/
}

# The DNS tests need a name server.
dnsmasq_build() {
  source_of dnsmasq
  nice -n 19 make -s -C source -j"$jobs" CC=${cross}gcc LDFLAGS=-static COPTS=
  ${cross}strip -o made/dnsmasq source/src/dnsmasq
}

# The demo needs bash. Its configuration is told what it cannot try out, because the target is another machine.
bash_build() {
  source_of bash
  cd source
  nice -n 19 ./configure --host=mips-linux-gnu --enable-static-link --without-bash-malloc --disable-nls \
    bash_cv_job_control_missing=present bash_cv_sys_named_pipes=present bash_cv_func_sigsetjmp=present \
    bash_cv_unusable_rtsigs=no bash_cv_getcwd_malloc=yes bash_cv_printf_a_format=yes
  nice -n 19 make -s -j"$jobs" bash
  ${cross}strip -o ../made/bash bash
}

socat_build() {
  source_of socat
  cd source
  nice -n 19 ./configure --host=mips-linux-gnu --disable-openssl --disable-readline --disable-libwrap \
    sc_cv_termios_ispeed=no sc_cv_sys_crdly_shift=9 sc_cv_sys_tabdly_shift=11 sc_cv_sys_csize_shift=4 LDFLAGS=-static
  nice -n 19 make -s -j"$jobs" socat
  ${cross}strip -o ../made/socat socat
}

# This C library is as small as the target's. It has a compiler wrapper (bin/musl-gcc) and the kernel's headers.
musl_build() {
  source_of musl
  cd source
  CC=${cross}gcc nice -n 19 ./configure --host=mips-linux-gnu --prefix="$folder" --enable-wrapper=gcc
  nice -n 19 make -s -j"$jobs"
  make -s install DESTDIR="$PWD/installed"
  mv "installed$folder"/* ../made/
  ln -s /usr/mips-linux-gnu/include/{linux,asm,asm-generic,mtd} ../made/include/
}

# Builds every part that is not there, and sets `part_NAME` for each.
build_parts() {
  set_up_apt
  part kernel Packages linux-source-6.1 "$here/kernel.config"
  part iproute2 Sources iproute2
  part iptables Sources iptables
  part busybox Sources busybox
  part dnsmasq Sources dnsmasq
  part bash Sources bash
  part socat Sources socat
  part musl Sources musl
}
