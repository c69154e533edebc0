#!/usr/bin/env bash
# kvo-batch over two machines with no shared file system: this one (":")
# and a "remote" one, an sshd started here on 127.0.0.1 with throwaway keys.
# Documents run on the remote one are sent into a working directory there
# and their results come back into the output directory. A wrapper around
# the real helper writes the input path it was given on its stderr, which
# shows where each document was read. Then Ctrl-C while the remote machine
# reads slow documents: no helper is left there, and the resumed run does
# each document once. Skipped (77) without sshd.
set -euo pipefail
: "${KVO_HELPER:?}" "${KVO_SOURCE_DIR:?}"
sshd=/usr/sbin/sshd
if [ ! -x "$sshd" ] || ! command -v rsync > /dev/null; then
  echo "SKIP: needs openssh-server and rsync (scripts/packages.txt)"; exit 77
fi
batch="$KVO_SOURCE_DIR/tools/kvo-batch"
work=$(mktemp -d /tmp/kvo-ssh-test.XXXXXX)
sshd_pid=''
trap '[ -n "$sshd_pid" ] && kill "$sshd_pid" 2> /dev/null; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

keys="$work/keys"
mkdir -m 700 "$keys"
ssh-keygen -q -t ed25519 -N '' -f "$keys/host" -C kvo-test-host
ssh-keygen -q -t ed25519 -N '' -f "$keys/user" -C kvo-test-user
cp "$keys/user.pub" "$keys/authorized_keys"
port=$(/usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat > "$keys/sshd_config" <<EOF
Port $port
ListenAddress 127.0.0.1
HostKey $keys/host
AuthorizedKeysFile $keys/authorized_keys
PidFile $keys/sshd.pid
StrictModes no
UsePAM no
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
EOF
cat > "$keys/ssh_config" <<EOF
Host kvo-remote
  HostName 127.0.0.1
  Port $port
  User $(id -un)
  IdentityFile $keys/user
  IdentitiesOnly yes
  StrictHostKeyChecking no
  UserKnownHostsFile /dev/null
  LogLevel ERROR
  BatchMode yes
EOF
[ "$(id -u)" != 0 ] || mkdir -p /run/sshd  # sshd's privilege separation directory
"$sshd" -D -f "$keys/sshd_config" -E "$keys/sshd.log" &
sshd_pid=$!
for _ in $(seq 50); do ssh -F "$keys/ssh_config" kvo-remote true 2> /dev/null && break; sleep 0.1; done
ssh -F "$keys/ssh_config" kvo-remote true || { cat "$keys/sshd.log"; fail "the loopback sshd does not let us in"; }
export PARALLEL_SSH="ssh -F $keys/ssh_config"

in="$work/in"
mkdir -p "$in/sub dir"
for name in a.png "b c.png" "sub dir/d.png" e.png f.png; do cp "$KVO_SOURCE_DIR/samples/sample.png" "$in/$name"; done
cp "$KVO_SOURCE_DIR/samples/sample.pdf" "$in/sub dir/g.pdf"
cat > "$work/helper" <<EOF
#!/bin/sh
echo "input: \$2" >&2
exec "$KVO_HELPER" "\$@"
EOF
chmod +x "$work/helper"
# Three jobs at once on the remote machine, one here: both get documents.
printf '3/kvo-remote\n1/:\n' > "$work/machines"

workdirs_before=$(ls -A "$HOME/.parallel/tmp" 2> /dev/null || true)
"$batch" --input-dir "$in" --output-dir "$work/out" --helper "$work/helper" --sshloginfile "$work/machines" \
  | tee "$work/run.out"
grep -qx 'documents: 6 found, 6 with an outcome, 6 run now, 0 not done' "$work/run.out" || fail "not every document done"
grep -qE '^  ok +6$' "$work/run.out" || fail "not every document ok"
remote=0 local=0
while IFS= read -r -d '' stderr; do
  dir=$(dirname "$stderr")
  grep -q 'Harbour Light Books' "$dir/artifacts/ocr.txt" || fail "$dir: no text came back"
  [ -f "$dir/artifacts/result.json" ] && [ -s "$dir/line.json" ] && [ -f "$dir/outcome" ] || fail "$dir: results missing"
  if grep -q "^input: $HOME/.parallel/tmp/" "$stderr"; then remote=$((remote + 1));
  elif grep -q "^input: $in/" "$stderr"; then local=$((local + 1));
  else cat "$stderr"; fail "$dir: read from an unexpected place"; fi
done < <(find "$work/out/documents" -name stderr -print0)
echo "read on the remote machine: $remote, here: $local"
[ "$remote" -ge 1 ] && [ "$local" -ge 1 ] || fail "both machines should have read documents"
[ "$(cut -f2 "$work/out/joblog" | grep -c kvo-remote)" = "$remote" ] || fail "the job log disagrees"
[ "$(ls -A "$HOME/.parallel/tmp" 2> /dev/null || true)" = "$workdirs_before" ] ||
  fail "working directories left in ~/.parallel/tmp (--cleanup)"

echo "== odd names (blank, quote, tab, newline) on the remote machine, into an output directory with a blank"
odd="$work/odd in"
mkdir -p "$odd/sub dir"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$odd/b c.png"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$odd/q'uote\$.png"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$odd/sub dir/t"$'\t'"x"$'\n'"y.png"
printf '3/kvo-remote\n' > "$work/remote-only"
"$batch" --input-dir "$odd" --output-dir "$work/odd out" --helper "$work/helper" --sshloginfile "$work/remote-only" \
  | tee "$work/odd.out"
grep -qx 'documents: 3 found, 3 with an outcome, 3 run now, 0 not done' "$work/odd.out" || fail "odd names not all done"
for name in "b c.png" "q'uote\$.png" "sub dir/t"$'\t'"x"$'\n'"y.png"; do
  dir="$work/odd out/documents/$name"
  grep -q 'Harbour Light Books' "$dir/artifacts/ocr.txt" || fail "$name: no text came back"
  grep -q "^input: $HOME/.parallel/tmp/" "$dir/stderr" || fail "$name: not read on the remote machine"
done
echo "== Ctrl-C with documents on the remote machine: no helper left there, the resume does each once"
slow="$work/slow-helper"
cat > "$slow" <<EOF
#!/bin/bash
echo "start \${2##*/}" >> "$work/slow.log"
mkdir -p "\$4"
trap 'kill \$child; exit 143' TERM
sleep 2 & child=\$!
wait \$child
echo read > "\$4/ocr.txt"
echo "end \${2##*/}" >> "$work/slow.log"
echo '{"ok":true,"pageCount":1,"pagesPreview":[],"resultPath":"result.json","textPath":"ocr.txt","textPreview":"read","truncated":false}'
EOF
chmod +x "$slow"
mkdir "$work/slow-in"
for i in 1 2 3 4; do printf 'x' > "$work/slow-in/doc$i.png"; done
printf '2/kvo-remote\n' > "$work/remote-two"
slow_options=(--input-dir "$work/slow-in" --output-dir "$work/slow-out" --helper "$slow" --sshloginfile "$work/remote-two")
# In a session of its own with SIGINT not ignored, as from a terminal.
/usr/bin/python3 -c 'import os, signal, sys
signal.signal(signal.SIGINT, signal.SIG_DFL); os.setsid(); os.execv(sys.argv[1], sys.argv[1:])' \
  "$batch" "${slow_options[@]}" > /dev/null 2> "$work/slow.err" &
batch_pid=$!
for _ in $(seq 100); do [ "$(grep -c start "$work/slow.log" 2> /dev/null)" = 2 ] && break; sleep 0.1; done
[ "$(grep -c start "$work/slow.log")" = 2 ] || fail "the slow documents did not start on the remote machine"
kill -INT -- "-$batch_pid"
status=0; wait "$batch_pid" || status=$?
[ "$status" = 130 ] || { cat "$work/slow.err"; fail "exit status $status after SIGINT"; }
sleep 1  # the remote side notices the closed connection
[ -z "$(pgrep -f "$slow" || true)" ] || fail "helpers still running after the interrupt: $(pgrep -af "$slow")"
"$batch" "${slow_options[@]}" > "$work/slow-resumed.out" 2> /dev/null
grep -qx 'documents: 4 found, 4 with an outcome, 4 run now, 0 not done' "$work/slow-resumed.out" ||
  { cat "$work/slow-resumed.out"; fail "the resumed run did not do every document"; }
for i in 1 2 3 4; do
  [ "$(grep -c "^end doc$i.png$" "$work/slow.log")" = 1 ] || { cat "$work/slow.log"; fail "doc$i.png not done exactly once"; }
done
echo "two machines, no shared file system: every document sent, read and returned"
