# Sourced by the comparisons: times, ratios, and whether one is within its limit.

# seconds COMMAND...: runs it and gives its wall time.
seconds() {
  local begun=$EPOCHREALTIME
  "$@" >&2
  awk -v a="$begun" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f", b - a }'
}
# costs COMMAND...: runs it and gives its wall time, its processor time (user and system) and its most memory in kB.
costs() {
  local note
  note=$(mktemp)
  /usr/bin/time -f '%e %U %S %M' -o "$note" "$@" >&2 || { cat "$note" >&2; rm "$note"; return 1; }
  awk 'END { printf "%.2f %.2f %d", $1, $2 + $3, $4 }' "$note"
  rm "$note"
}
least() { printf '%s\n' "$@" | sort -g | head -n 1; }
most() { printf '%s\n' "$@" | sort -g | tail -n 1; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }
failed=0
# verdict WHAT FIGURE LIMIT
verdict() {
  local word=ok
  awk -v f="$2" -v l="$3" 'BEGIN { exit !(f <= l) }' || { word="TOO MUCH"; failed=1; }
  printf '%-58s %8s  (at most %s) %s\n' "$1" "$2" "$3" "$word"
}
random_bytes() {  # COUNT SEED
  openssl enc -aes-128-ctr -pass "pass:$2" -nosalt -pbkdf2 -in /dev/zero 2>/dev/null | head -c "$1" || true
}
