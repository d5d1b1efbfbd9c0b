#!/usr/bin/env bash
# Builds the Debian packages from a built tree, checks them with lintian, checks quotesd's
# systemd unit and its purge, unpacks them into a scratch root and from there builds a project on
# the library, sets up quotesd, serves on a free loopback port and lists the sources with quotesctl.
set -euo pipefail
build_dir=$(realpath "$1")
source_dir=$(realpath "$(dirname "$0")/../..")
scratch=$(mktemp -d)
server_pid=
cleanup() {
    if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; fi
    # A server the walk-through's subshell started and could not stop.
    if [ -s "$scratch/server.pid" ]; then kill "$(cat "$scratch/server.pid")" 2>/dev/null || true; fi
    rm -rf "$scratch"
}
trap cleanup EXIT
# The server runs as nobody when we are root (it refuses root), so it must reach its files.
chmod 755 "$scratch"
fail() {
    echo "package test: $*" >&2
    exit 1
}

# The libraries' packages are named after their soname's version, the top changelog entry's major.
major=$(sed -n '1s/^[^(]*(\([0-9]*\)\..*/\1/p' "$source_dir/packaging/changelog")
[ -n "$major" ] || fail "no version at the top of packaging/changelog"
packages=("libquoteshostcore$major" "libpanelquotesmanage$major" libpanelquotesmanage-dev
    quotes-console quotesctl quotesd)

echo "== cpack"
(cd "$build_dir" && cpack -G DEB -B "$scratch/debs" >"$scratch/cpack.log") ||
    { cat "$scratch/cpack.log" >&2; fail "cpack failed"; }
debs=()
for package in "${packages[@]}"; do
    deb=$(ls "$scratch/debs/${package}_"*.deb 2>/dev/null) || fail "no package $package"
    debs+=("$deb")
done

echo "== contents"
for deb in "${debs[@]}"; do
    package=$(dpkg-deb -f "$deb" Package)
    contents=$(dpkg-deb -c "$deb")
    for file in copyright changelog.Debian.gz; do
        grep -q "usr/share/doc/$package/$file\$" <<<"$contents" || fail "$package lacks $file"
    done
    dpkg-deb -x "$deb" "$scratch/root"
    # An override hides a tag: each one says why, in a comment right above it.
    overrides=$scratch/root/usr/share/lintian/overrides/$package
    if [ -e "$overrides" ]; then
        awk '/^#/ { said = 1; next } /^[[:space:]]*$/ { said = 0; next }
            { if (!said) exit 1 }' "$overrides" || fail "$package has an override without a reason"
    fi
done
# A headless server installs quotesd and quotesctl without any widget or display library.
for deb in "${debs[4]}" "${debs[5]}"; do
    depends=$(dpkg-deb -f "$deb" Depends)
    ! grep -Eq "libqt5gui|libqt5widgets|libx11|libxcb|libpanelquotesmanage$major" <<<"$depends" ||
        fail "$(dpkg-deb -f "$deb" Package) depends on a widget or display library: $depends"
done
root=$scratch/root
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
for file in usr/sbin/quotesd usr/bin/quotesctl usr/bin/quotes-console usr/share/man/man8/quotesd.8.gz \
    usr/share/man/man1/quotesctl.1.gz usr/share/man/man1/quotes-console.1.gz \
    usr/share/bash-completion/completions/quotesctl usr/share/applications/quotes-console.desktop \
    lib/systemd/system/quotesd.service etc/default/quotesd \
    "usr/lib/$multiarch/cmake/PanelQuotesManage/PanelQuotesManageConfig.cmake" \
    "usr/lib/$multiarch/libQuotesHostCore.so.$major"; do
    [ -e "$root/$file" ] || fail "no $file in the packages"
done
[ ! -e "$root/usr/bin/quotesd" ] || fail "quotesd is in /usr/bin, its manual in section 8"
# The server and its client name the PostgreSQL driver; a missing one says which package.
for deb in "${debs[4]}" "${debs[5]}"; do
    grep -q 'libqt5sql5-psql' <<<"$(dpkg-deb -f "$deb" Recommends)" ||
        fail "$(dpkg-deb -f "$deb" Package) does not recommend libqt5sql5-psql"
done
while IFS= read -r elf; do
    ! grep -q 'not stripped' <<<"$(file -L "$elf")" || fail "${elf#"$root"} is not stripped"
done < <(find "$root" -type f \( -path '*/bin/*' -o -name '*.so*' \))

echo "== lintian"
# Pedantic, and any tag fails: what remains are the packages' overrides, each with its reason.
lintian --pedantic --fail-on error,warning,info,pedantic --tag-display-limit 0 "${debs[@]}" ||
    fail "lintian --pedantic shows tags"

echo "== quotesd's maintainer scripts: the system user, the data directory, purge"
# Run for real on copies of /etc and /lib/systemd/system (with the unit, as dpkg would have
# unpacked it) and a private /var/lib, each mounted in a namespace of its own, so this machine's
# stay untouched; needs root.
if [ "$(id -u)" -eq 0 ]; then
    dpkg-deb -e "${debs[5]}" "$scratch/control"
    # As dpkg runs them: deb-systemd-helper refuses other callers.
    export DPKG_MAINTSCRIPT_PACKAGE=quotesd
    maintscript() {
        local etc=$1 var=$2
        shift 2
        unshare -m sh -c 'mount --bind "$1" /etc && mount --bind "$2" /var/lib &&
            mount --bind "$3" /lib/systemd/system && shift 3 && "$@"' \
            sh "$etc" "$var" "$scratch/units" "$@"
    }
    cp -a /etc "$scratch/etc"
    cp -a /lib/systemd/system "$scratch/units"
    cp "$root/lib/systemd/system/quotesd.service" "$scratch/units/"
    for file in passwd group shadow gshadow; do
        if [ -e "$scratch/etc/$file" ]; then sed -i '/^quotesd:/d' "$scratch/etc/$file"; fi
    done
    mkdir -p "$scratch/var-new"
    DPKG_MAINTSCRIPT_NAME=postinst maintscript "$scratch/etc" "$scratch/var-new" \
        "$scratch/control/postinst" configure || fail "postinst configure failed"
    grep -q '^quotesd:x:[0-9]*:[0-9]*:[^:]*:/var/lib/quotesd:/usr/sbin/nologin$' \
        "$scratch/etc/passwd" || fail "postinst made no system user quotesd"
    uid=$(awk -F: '$1 == "quotesd" { print $3 }' "$scratch/etc/passwd")
    [ "$(stat -c '%u %a' "$scratch/var-new/quotesd")" = "$uid 700" ] ||
        fail "postinst made no private /var/lib/quotesd of the user quotesd"
    # The server starts once its data is set up, when the administrator enables it.
    [ -z "$(find "$scratch/etc/systemd" -name quotesd.service)" ] || fail "postinst enabled quotesd"
    for ask in no yes; do
        mkdir -p "$scratch/var-$ask/quotesd"
        touch "$scratch/var-$ask/quotesd/quotes.db"
        QUOTESD_PURGE_DATA=$ask DPKG_MAINTSCRIPT_NAME=postrm maintscript "$scratch/etc" \
            "$scratch/var-$ask" "$scratch/control/postrm" purge 2>/dev/null ||
            fail "postrm purge failed"
    done
    [ -e "$scratch/var-no/quotesd/quotes.db" ] || fail "purge removed /var/lib/quotesd unasked"
    [ ! -e "$scratch/var-yes/quotesd" ] || fail "purge kept /var/lib/quotesd though asked"
fi

echo "== systemd-analyze verify"
# The unit names /usr/sbin/quotesd, which is in the scratch root, not on this machine. A warning
# (an unknown key, a bad value) fails the test as an error does.
verify_dir=$scratch/unit
mkdir -p "$verify_dir"
sed "s|^ExecStart=/usr/sbin/quotesd|ExecStart=$root/usr/sbin/quotesd|" \
    "$root/lib/systemd/system/quotesd.service" >"$verify_dir/quotesd.service"
# MANPATH: Documentation=man:quotesd(8) must name the page the package ships.
verify=$(MANPATH=$root/usr/share/man SYSTEMD_LOG_LEVEL=warning systemd-analyze verify "$verify_dir/quotesd.service" 2>&1) ||
    { echo "$verify" >&2; fail "systemd-analyze verify failed"; }
! grep -q 'quotesd.service' <<<"$verify" || { echo "$verify" >&2; fail "the unit has warnings"; }
# Every client connection is an open file: the default 1024 is soon reached.
grep -qx 'LimitNOFILE=65536' "$root/lib/systemd/system/quotesd.service" ||
    fail "the unit leaves quotesd the default open-file limit"

echo "== find_package(PanelQuotesManage) from the unpacked packages"
bash "$source_dir/tests/package/consumer.sh" "$root/usr" "$source_dir" "$scratch/consumer" ||
    fail "a project could not build on the library's packages"

echo "== quotesd and quotesctl from the unpacked packages"
bin=$root/usr/bin
sbin=$root/usr/sbin
# Read whole before matching: with pipefail, grep -q leaving early would fail ldd on SIGPIPE.
# The unpacked libraries are not where ld.so looks; the binaries find them by their RPATH.
linked=$(ldd "$sbin/quotesd")
grep -q "libQuotesHostCore.so.$major => $root/" <<<"$linked" ||
    fail "quotesd does not load its library from the package"
as_server=()
data=$scratch/data
if [ "$(id -u)" -eq 0 ]; then
    as_server=(setpriv --reuid=nobody --regid=nogroup --clear-groups --reset-env)
    install -d -o nobody -g nogroup -m 0700 "$data"
    # As the package's postinst makes /var/lib/quotesd-public for the certificate desktops trust.
    install -d -o nobody -g nogroup -m 0755 "$data-public"
fi
password=package-test-password
printf '%s\n' "$password" | "${as_server[@]}" "$sbin/quotesd" init --data "$data" >"$scratch/init.log" 2>&1 ||
    { cat "$scratch/init.log" >&2; fail "quotesd init failed"; }

# A port no socket of this machine listens on.
port_in_use() {
    local hex
    hex=$(printf ':%04X ' "$1")
    grep -qi "$hex" /proc/net/tcp /proc/net/tcp6 2>/dev/null
}
port=$((20000 + RANDOM % 20000))
while port_in_use $port; do port=$((port + 1)); done

# As the unit runs it, with what applies without systemd: its umask, its open-file limit and the
# packaged environment file's arguments (this test's data directory and port in place of
# /var/lib/quotesd and 7461); the user is nobody, standing in for quotesd.
unit=$root/lib/systemd/system/quotesd.service
unit_umask=$(sed -n 's/^UMask=//p' "$unit")
unit_files=$(sed -n 's/^LimitNOFILE=//p' "$unit")
[ -n "$unit_umask" ] && [ -n "$unit_files" ] || fail "the unit sets no UMask= or LimitNOFILE="
# A container may hold a lower hard limit than the unit's, which even root cannot raise here.
if ! prlimit --nofile="$unit_files:$unit_files" true 2>/dev/null; then
    unit_files=$(ulimit -Hn)
    echo "(open-file limit $unit_files, the most this machine allows)"
fi
quotesd_args=$(set -a && . "$root/etc/default/quotesd" && echo "$QUOTESD_ARGS")
quotesd_args=${quotesd_args//\/var\/lib\/quotesd/$data}
quotesd_args=${quotesd_args//0.0.0.0:7461/127.0.0.1:$port}
metrics_port=$((port + 1))
while port_in_use $metrics_port; do metrics_port=$((metrics_port + 1)); done
quotesd_args=${quotesd_args//127.0.0.1:9461/127.0.0.1:$metrics_port}
start_server() {
    : >"$scratch/server.log"
    (
        umask "$unit_umask"
        # shellcheck disable=SC2086 # the arguments split as systemd splits $QUOTESD_ARGS
        exec prlimit --nofile="$unit_files:$unit_files" "${as_server[@]}" "$sbin/quotesd" $quotesd_args
    ) >"$scratch/server.log" 2>&1 &
    server_pid=$!
    echo "$server_pid" >"$scratch/server.pid"
    # Bounded: the server is up within seconds or the test fails.
    for _ in $(seq 100); do
        grep -q 'listening on' "$scratch/server.log" && break
        kill -0 "$server_pid" 2>/dev/null || { cat "$scratch/server.log" >&2; fail "quotesd exited"; }
        sleep 0.1
    done
    grep -q 'listening on' "$scratch/server.log" || { cat "$scratch/server.log" >&2; fail "quotesd not up"; }
}
stop_server() {
    kill -TERM "$server_pid"
    wait "$server_pid" || fail "quotesd did not stop cleanly"
    server_pid=
    : >"$scratch/server.pid"
}
as_client() {
    printf '%s\n' "$password" | "${client[@]}" "$@"
}
client=("$bin/quotesctl" --server "127.0.0.1:$port" --ca "$data-public/ca.crt" --login admin
    --login-password-file -)
start_server
# A new server has no source: add one, so the listing shows it came back through quotesd.
as_client sources add --platform 10000 --trade-type 2 --address 192.0.2.15 --port 7100 >/dev/null ||
    { cat "$scratch/server.log" >&2; fail "quotesctl sources add through quotesd failed"; }
listing=$(as_client sources list) ||
    { cat "$scratch/server.log" >&2; fail "quotesctl sources list through quotesd failed"; }
grep -q '192\.0\.2\.15 *7100' <<<"$listing" || fail "quotesctl did not list the source: $listing"
grep -q "open files: $unit_files;" "$scratch/server.log" ||
    { cat "$scratch/server.log" >&2; fail "quotesd did not run with the unit's open-file limit"; }
# The unit's umask: what the server made in its data directory is its own user's alone.
! find "$data" -newer "$scratch/init.log" -type f -perm /077 | grep -q . ||
    fail "quotesd made files others may read under the unit's umask"
# The monitor's check, without a login.
"$bin/quotesctl" --server "127.0.0.1:$port" --ca "$data-public/ca.crt" health >/dev/null ||
    fail "quotesctl health did not find quotesd serving"
# SIGHUP, the unit's ExecReload, never stops it.
kill -HUP "$server_pid"
for _ in $(seq 50); do
    grep -q 'SIGHUP' "$scratch/server.log" && break
    sleep 0.1
done
grep -q 'SIGHUP' "$scratch/server.log" || fail "quotesd did not log SIGHUP"
kill -0 "$server_pid" 2>/dev/null || { cat "$scratch/server.log" >&2; fail "SIGHUP stopped quotesd"; }

# A renewed certificate from the same authority: the client keeps its ca.crt.
"${as_server[@]}" "$sbin/quotesd" cert renew --data "$data" >"$scratch/renew.log" 2>&1 ||
    { cat "$scratch/renew.log" >&2; fail "quotesd cert renew failed"; }
"${as_server[@]}" "$sbin/quotesd" cert show --data "$data" | grep -q 'days left' ||
    fail "quotesd cert show did not show the certificate"
as_client sources list >/dev/null ||
    { cat "$scratch/server.log" >&2; fail "quotesctl lost the server after cert renew"; }

echo "== backup through the server, restore once it stopped"
written=$(as_client backup) || { cat "$scratch/server.log" >&2; fail "quotesctl backup failed"; }
copy=${written#backup }
[ "$(dirname "$copy")" = "$data" ] || fail "the server wrote its backup elsewhere: $written"
[ "$(stat -c %a "$copy")" = 600 ] || fail "the backup is not private: $(stat -c %a "$copy")"
as_client sources add --platform 10000 --trade-type 2 --address 192.0.2.16 --port 7100 >/dev/null ||
    fail "quotesctl sources add after the backup failed"
"${as_server[@]}" "$bin/quotesctl" restore "$copy" --data "$data" >"$scratch/restore.log" 2>&1 &&
    fail "restore replaced the database of a running server"
stop_server
"${as_server[@]}" "$bin/quotesctl" restore "$copy" --data "$data" >"$scratch/restore.log" 2>&1 ||
    { cat "$scratch/restore.log" >&2; fail "quotesctl restore failed"; }
start_server
listing=$(as_client sources list) || fail "quotesctl sources list after the restore failed"
grep -q '192\.0\.2\.15 *7100' <<<"$listing" || fail "the restore lost the source: $listing"
! grep -q '192\.0\.2\.16' <<<"$listing" || fail "the restore kept a source added after the backup"
stop_server

echo "== README's walk-through, from install to upgrade"
# Run as written, with stand-ins for what a scratch root cannot do for real: apt unpacks the
# packages again (and, as their postinst, restarts a running server), systemctl starts and stops
# the server as the unit would, sudo -u quotesd runs as nobody.
walk_data=$scratch/walk/quotesd
mkdir -p "$scratch/walk" "$scratch/home"
chmod 755 "$scratch/walk"
if [ "$(id -u)" -eq 0 ]; then
    install -d -o nobody -g nogroup -m 0700 "$walk_data"
    install -d -o nobody -g nogroup -m 0755 "$walk_data-public"
else
    install -d -m 0700 "$walk_data"
    install -d -m 0755 "$walk_data-public"
fi
sed -n '/<!-- walk-through: run by tests\/package\/debian.sh -->/,/^```$/p' "$source_dir/README.md" |
    sed '1,2d;$d' >"$scratch/walk.sh"
[ -s "$scratch/walk.sh" ] || fail "README has no walk-through"
sed -i -e "s|/var/lib/quotesd|$walk_data|g" -e "s|127.0.0.1:7461|127.0.0.1:$port|g" \
    -e "s|127.0.0.1:9461|127.0.0.1:$metrics_port|g" "$scratch/walk.sh"
data=$walk_data
quotesd_args=${quotesd_args//$scratch\/data/$walk_data}
# Not in an && or || list, where bash would ignore set -e for every command inside.
set +e
(
    set -euo pipefail
    export HOME=$scratch/home PATH=$sbin:$bin:$PATH
    apt() {
        [ "$1" = install ] || fail "apt $1 in the walk-through"
        for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$root"; done
        if [ -n "$server_pid" ]; then stop_server && start_server; fi
    }
    systemctl() {
        case "$1 $2" in
            "enable --now" | "start quotesd") start_server ;;
            "stop quotesd") stop_server ;;
            "reload quotesd")
                kill -HUP "$server_pid"
                for _ in $(seq 50); do grep -q 'SIGHUP' "$scratch/server.log" && break; sleep 0.1; done
                grep -q 'SIGHUP' "$scratch/server.log" || fail "reload: no SIGHUP in the log"
                ;;
            *) fail "systemctl $* in the walk-through" ;;
        esac
    }
    sudo() {
        if [ "$1" = -u ]; then
            shift 2
            "${as_server[@]}" env PATH="$PATH" "$@"
        else
            "$@"
        fi
    }
    # shellcheck disable=SC1091 # written above, from README
    . "$scratch/walk.sh"
    stop_server
) >"$scratch/walk.log" 2>&1
walked=$?
set -e
[ "$walked" -eq 0 ] || { cat "$scratch/walk.log" "$scratch/server.log" >&2; fail "README's walk-through failed"; }
grep -q 'SERVING version' "$scratch/walk.log" || fail "the walk-through's health check said nothing"
grep -q '^quotesd_certificate_days_left' "$scratch/walk.log" || fail "the walk-through read no metrics"
echo "packages built, lintian clean, unit verified; quotesd served, reloaded, backed up and was restored"
