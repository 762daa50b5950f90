#!/bin/sh
# make demo: a short rainy drive through town on a Marlo128, cleaned by the default Marlo128
# configuration, measured against the simulator's truth and drawn before and after.
set -eu

BUILD_DIR=${1:-build}
TOOL="$BUILD_DIR/tools/velmar-algo"
CONFIG=configs/marlo128.json
OUT="$BUILD_DIR/demo"
FRAME=5

rm -rf "$OUT"
mkdir -p "$OUT"

echo "== simulating 10 frames of a rainy city drive"
"$TOOL" simulate --model Marlo128 --scene city --ego-speed 8 --rain 0.08 --ghost 0.5 \
  --close-range 0.3 --interference 0.01 --fixed-echo 0.5 --bloom 1 --frames 10 --seed 7 -o "$OUT/drive"

echo
echo "== running $CONFIG over it, packet by packet as the sensor delivers them"
"$TOOL" run --model Marlo128 --packet 128 --config "$CONFIG" "$OUT/drive" "$OUT/processed"

echo
echo "== what each algorithm did"
"$TOOL" eval --model Marlo128 --packet 128 --config "$CONFIG" --json "$OUT/eval.json" \
  --plot "$OUT/eval.png" "$OUT/drive" | grep -v ' is added!$'

echo
echo "== pictures of frame $FRAME"
"$TOOL" render "$OUT/drive" --frame "$FRAME" -o "$OUT/before.png" >/dev/null
"$TOOL" render "$OUT/drive" --frame "$FRAME" --packet 128 --config "$CONFIG" \
  -o "$OUT/outcome.png" | grep -v ' is added!$' >/dev/null
"$TOOL" render "$OUT/processed" --frame "$FRAME" -o "$OUT/after.png" >/dev/null
echo "before (truth classes):            $OUT/before.png"
echo "outcome (kept/removed, real/noise): $OUT/outcome.png"
echo "after (what the host receives):    $OUT/after.png"
echo "bar chart per algorithm:           $OUT/eval.png"
echo "figures as JSON:                   $OUT/eval.json"

# Real snowfall, when the shared frames sit beside the repository (they are never copied in).
WADS=../shared/data/wads-sample
if [ -f "$WADS/sample.bin" ]; then
  echo
  echo "== a real snowfall frame, imported and cleaned by configs/imported.json"
  "$TOOL" import "$WADS/sample.bin" --label "$WADS/sample.label" -o "$OUT/wads" >/dev/null
  "$TOOL" eval --model KR360 --config configs/imported.json "$OUT/wads" |
    sed -n '/^whole pipeline$/,/F1/p'
else
  echo
  echo "(no $WADS beside the repository: the real snowfall frame is left out)"
fi
