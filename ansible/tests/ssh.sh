# Over ssh by a user who becomes root, with and without pipelining; what is killed leaves nothing behind
#
# run-tests calls it, with its environment, in mount and net namespaces of their own.
set -eu
ip link set lo up
mount -t tmpfs none /run
mount -t tmpfs -o mode=755 none /home
mkdir -p /run/sshd /run/keys /home/operator/.ssh
mkdir /run/scratch
echo TMPDIR=/run/scratch >/run/scratch.env
over() { cat >"/run/keys/${1##*/}" && chmod "$2" "/run/keys/${1##*/}" && mount --bind "/run/keys/${1##*/}" "$1"; }
{ cat /etc/passwd; echo 'operator:x:4711:4711::/home/operator:/bin/sh'; } | over /etc/passwd 644
{ cat /etc/shadow; echo 'operator:*:1::::::'; } | over /etc/shadow 600
over /etc/sudoers 440 <<'END'
Defaults env_keep += SSH_CONNECTION
Defaults env_file=/run/scratch.env
root ALL=(ALL) ALL
operator ALL=(ALL) NOPASSWD: ALL
END
for key in host user; do ssh-keygen -q -t ed25519 -N '' -f /run/keys/$key; done
cp /run/keys/user.pub /home/operator/.ssh/authorized_keys
chown -R 4711:4711 /home/operator
/usr/sbin/sshd -D -f /dev/null -h /run/keys/host -p 22 -o ListenAddress=127.0.0.1 -o PidFile=none \
    -o "Subsystem=sftp internal-sftp" &
trap "kill $!" EXIT

export ANSIBLE_REMOTE_TEMP='~/.ansible/tmp' ANSIBLE_SSH_CONTROL_PATH_DIR=/run/keys
export ANSIBLE_SSH_ARGS='-o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null -o ControlMaster=auto -o ControlPersist=9'
# play PIPELINING FURTHER...
play() {
    export ANSIBLE_PIPELINING=$1
    shift
    ansible-playbook --diff -i ansible/examples/fleet/inventory.yml -i ansible/tests/playbooks/inventory.yml \
        -e '{"ansible_connection": "ssh", "ansible_host": "127.0.0.1", "ansible_user": "operator", "ansible_become": true,
            "ansible_ssh_private_key_file": "/run/keys/user"}' "$@"
}
# left PATTERN...: fails when any of them is there.
left() { for path in "$@"; do [ ! -e "$path" ] || { echo "left behind: $path"; return 1; }; done; }
# killed NAME: ends the programs of that name that belong to the connection, or are it.
killed() {
    for process in /proc/[0-9]*; do
        [ "$(cat "$process/comm" 2>/dev/null)" = "$1" ] || continue
        [ "$(readlink "$process/ns/net")" = "$(readlink /proc/self/ns/net)" ] || continue
        [ "$1" = ssh ] || grep -q SSH_CONNECTION "$process/environ" || continue
        kill -9 "${process#/proc/}"
    done
}

play 1 --limit gw01.example.net ansible/tests/playbooks/1-modules.yml
play 0 --limit gw01.example.net ansible/tests/playbooks/3-together.yml
left /home/operator/.ansible/tmp/* /run/scratch/*

for victim in ssh python3; do
    cp "$SCRATCH/gw02/etc/vpn.conf" /run/before
    play 0 --limit gw02.example.net ansible/tests/cut.yml >/run/play 2>&1 &
    until grep -q 'peer slow' "$SCRATCH/gw02/etc/vpn.conf"; do sleep 0.1; done
    killed $victim
    ! wait $! || { cat /run/play; exit 1; }
    until cmp /run/before "$SCRATCH/gw02/etc/vpn.conf"; do sleep 0.5; done
    left /home/operator/.ansible/tmp/*
    [ $victim != ssh ] || left /run/scratch/*
done
