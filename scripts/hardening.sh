#!/bin/sh
# Looks into ELF files whether they are built to resist faults: scripts/hardening.sh FILE...
set -eu

[ $# -ne 0 ] || { echo "usage: scripts/hardening.sh FILE..." >&2; exit 2; }
failed=no
complain() {
    echo "$1: $2" >&2
    failed=yes
}

for file in "$@"; do
    dynamic=$(readelf --wide --dynamic "$file")
    symbols=$(readelf --wide --dyn-syms "$file")
    readelf --wide --program-headers "$file" | grep -q GNU_RELRO || complain "$file" "no RELRO"
    echo "$dynamic" | grep -qE 'BIND_NOW|\bNOW\b' || complain "$file" "not bound at start: RELRO is partial"
    ! readelf --wide --program-headers "$file" | grep -q 'GNU_STACK.*RWE' ||
        complain "$file" "executable stack"
    readelf --wide --file-header "$file" | grep -q 'Type:.*DYN' || complain "$file" "position-dependent"
    ! echo "$dynamic" | grep -qE 'RPATH|RUNPATH' || case "$file" in
    */build/*/bin/* | build/*/bin/*) ;; # the build's own
    *) complain "$file" "has a library search path" ;;
    esac
    echo "$symbols" | grep -q '__stack_chk_fail' || complain "$file" "no stack protector"
    case $(uname -m) in
    x86_64)
        # Not by the file's own note: the linker leaves it out where the C library has none.
        [ "$(objdump --disassemble "$file" | grep -c endbr64)" -gt 100 ] ||
            complain "$file" "no control-flow protection"
        ;;
    esac
done
[ "$failed" = no ]
