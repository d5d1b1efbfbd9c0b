#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the console need.
# Idempotent: nothing is fetched when every package is already present.
set -euo pipefail

packages=(
  build-essential cmake pkg-config clang-format
  qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite libqt5sql5-psql
  libboost-dev libboost-thread-dev
  liblog4cxx-dev libbson-dev
  postgresql
  libgrpc++-dev protobuf-compiler-grpc protobuf-compiler libprotobuf-dev libssl-dev libsodium-dev
  libsqlite3-dev libpq-dev
  fonts-wqy-microhei
  clang libclang-rt-14-dev
  qttranslations5-l10n
  xvfb openbox x11-utils
  lintian systemd dpkg-dev file man-db
  ccache ninja-build clang-tidy
  libsystemd-dev prometheus-cpp-dev libqwt-qt5-dev
  python3-grpcio python3-grpc-tools python3-protobuf python3-prometheus-client testssl.sh curl
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing ${missing[*]}" >&2
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -q
"${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
