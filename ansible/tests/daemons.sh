# What the tests and the demo share: three daemons, each on a root and a socket of its own, the collection as
# it is installed, and an Ansible that keeps to a scratch directory. Expects $build and $tests, and to stand
# in the sources.

scratch=$(mktemp -d)
daemons=''
stop_all() {
    for daemon in $daemons; do kill "$daemon" 2>/dev/null && wait "$daemon" 2>/dev/null || true; done
    daemons=''
}
finish() {
    stop_all
    rm -rf "$scratch"
}
trap finish EXIT
trap 'exit 1' INT TERM

export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME="$scratch/home" LC_ALL=C.UTF-8 SCRATCH="$scratch" PYTHONDONTWRITEBYTECODE=1
export ANSIBLE_COLLECTIONS_PATH="$scratch/collections" ANSIBLE_NOCOLOR=1 ANSIBLE_REMOTE_TEMP="$scratch/remote" ANSIBLE_ASYNC_DIR="$scratch/async"
export ANSIBLE_CONNECTION_PLUGINS="$tests/connection_plugins" ANSIBLE_CONFIG="$scratch/ansible.cfg" ANSIBLE_PIPELINING=1
mkdir -p "$HOME"
: >"$scratch/ansible.cfg"

# start NAME: a daemon with the configuration as installed. Nothing of the machine is told of a commit,
# since there is no /proc below its root.
start() {
    root=$scratch/$1
    mkdir -p "$root/etc/network" "$root/dev" "$root/sbin"
    cp -a packaging/etc/ucfgd "$root/etc/"
    echo 'root:x:0:0:root:/root:/bin/sh' >"$root/etc/passwd"
    echo 'root:x:0:' >"$root/etc/group"
    : >"$root/sbin/ifup"
    echo gateway >"$root/etc/hostname"
    printf '127.0.0.1\tlocalhost\n' >"$root/etc/hosts"
    printf 'auto lan0\niface lan0 inet dhcp\n' >"$root/etc/network/interfaces"
    printf '# by hand\nnameserver 192.0.2.1\n' >"$root/etc/resolv.conf"
    cp -a ansible/tests/vpn "$root/etc/ucfgd/features/"
    mv "$root/etc/ucfgd/features/vpn/vpn.conf" "$root/etc/ucfgd/features/"
    printf 'peer 192.0.2.9\nsecret other-line\342\200\250first-secret\npin 7\n' >"$root/etc/vpn.conf"
    unshare --mount sh -c 'mount -t tmpfs none /run && exec "$@"' sh \
        "$build/src/daemon/ucfgd" --foreground --root="$root" >"$scratch/$1.log" 2>&1 &
    daemons="$daemons $!"
}

# Three machines as they are installed; those that ran are gone.
start_all() {
    stop_all
    for name in gw01 gw02 gw03; do
        rm -rf "${scratch:?}/$name"
        start $name
    done
    for name in gw01 gw02 gw03; do
        for _ in $(seq 100); do
            [ ! -S "$scratch/$name/dev/ucfgd" ] || break
            sleep 0.1
        done
    done
}

build_and_install() {
    ansible/build "$scratch" && ansible-galaxy collection install -p "$scratch/collections" "$scratch"/*.tar.gz
}

play() {
    timeout 120 ansible-playbook --diff -i ansible/examples/fleet/inventory.yml -i "$tests/inventory.yml" \
        --limit tested "$@"
}
