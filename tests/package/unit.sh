#!/usr/bin/env bash
# quotesd's systemd unit: Type=notify with a watchdog and a reload by SIGHUP, hardened until
# systemd-analyze rates it at most 2.5, and nothing in it that would cut quotesd off from its
# clients, PostgreSQL's socket or the sources it connects to.
set -euo pipefail
unit=$(realpath "$1")/packaging/quotesd/quotesd.service
fail() {
    echo "unit test: $*" >&2
    exit 1
}
for line in 'Type=notify' 'NotifyAccess=main' 'ExecReload=/bin/kill -HUP $MAINPID' 'LimitNOFILE=65536' \
    'CapabilityBoundingSet=' 'SystemCallFilter=@system-service' 'MemoryDenyWriteExecute=yes' \
    'PrivateDevices=yes' 'RestrictAddressFamilies=AF_UNIX AF_INET AF_INET6'; do
    grep -qxF "$line" "$unit" || fail "the unit lacks $line"
done
grep -qE '^WatchdogSec=[1-9][0-9]*$' "$unit" || fail "the unit has no watchdog"
for blocking in PrivateNetwork IPAddressDeny IPAddressAllow RestrictNetworkInterfaces SocketBindDeny; do
    ! grep -q "^$blocking=" "$unit" || fail "$blocking= would block quotesd's clients or sources"
done
report=$(systemd-analyze security --offline=true --no-pager "$unit" 2>&1) ||
    { echo "$report" >&2; fail "systemd-analyze security failed"; }
score=$(sed -n 's/.*Overall exposure level for quotesd.service: \([0-9.]*\).*/\1/p' <<<"$report")
[ -n "$score" ] || { echo "$report" >&2; fail "no exposure level"; }
awk -v s="$score" 'BEGIN { exit !(s <= 2.5) }' || { echo "$report" >&2; fail "exposure $score is above 2.5"; }
echo "unit hardened: exposure $score"
