#!/bin/sh
set -eu
exec "$(dirname "$0")/../fuzz.sh" 120
