#!/usr/bin/env bash
# Fails when libalgo.so exports a symbol outside the public interface.
set -euo pipefail
lib=$1
symbols=$(nm -D --defined-only -C "$lib" | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }')
unexpected=$(echo "$symbols" | grep -vE '^(velmar::ILidarAlgo|velmar::LidarTypeToStr|typeinfo (name )?for velmar::ILidarAlgo|vtable for velmar::ILidarAlgo)' || true)
if [ -n "$unexpected" ]; then
  echo "unexpected exported symbols:"
  echo "$unexpected"
  exit 1
fi
for wanted in 'velmar::ILidarAlgo::Create' 'velmar::LidarTypeToStr' 'velmar::ILidarAlgo::VersionNumber' 'velmar::ILidarAlgo::DebugString'; do
  echo "$symbols" | grep -q "^$wanted" || { echo "missing export: $wanted"; exit 1; }
done
echo "exports: $(echo "$symbols" | wc -l) symbols, all public"
