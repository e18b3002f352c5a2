#!/usr/bin/env bash
# Builds the benchmarks in Release (build-bench/) and runs them all against loopback HTTPS
# servers, then prints the figures as ratios against raw libcurl measured in the same run.
#
#   bench/run.sh
#
# Servers: nginx (Debian's nginx-light, installed when missing and allowed) serving fixed
# answers, and, as a check of whether it keeps up, the project's own tavik-sandbox in a
# process of its own. Everything stays on 127.0.0.1. Results: build-bench/bench-results/.
#
# Environment: TAVIK_BENCH_NGINX_WORKERS (default 1), TAVIK_BENCH_SKIP_SANDBOX=1 to skip
# the sandbox check.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="$ROOT/build-bench"
RESULTS="$BUILD/bench-results"
WORKERS="${TAVIK_BENCH_NGINX_WORKERS:-1}"

log() { printf '\n== %s\n' "$*" >&2; }

LOAD_START="$(cut -d' ' -f1-3 /proc/loadavg)"
log "building (Release) in $BUILD"
cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTAVIK_BUILD_BENCH=ON \
  -DTAVIK_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD" --target tavik_bench_net tavik_bench_decode tavik_bench_memory \
  tavik_bench_transport_parts tavik_bench_store tavik-sandbox

if ! command -v nginx >/dev/null && [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
  log "installing nginx-light"
  apt-get install -y -q nginx-light >/dev/null || { apt-get update -q >/dev/null && apt-get install -y -q nginx-light >/dev/null; }
fi
NGINX="$(command -v nginx || true)"
if [ -z "$NGINX" ] && [ -x /usr/sbin/nginx ]; then NGINX=/usr/sbin/nginx; fi

RUN="$(mktemp -d /tmp/tavik-bench.XXXXXX)"
chmod 755 "$RUN"  # nginx workers run as an unprivileged user and must read the answers
mkdir -p "$RUN/www" "$RUN/tmp" "$RESULTS"
rm -f "$RESULTS"/*.json "$RESULTS/summary.txt"  # never report a figure from an earlier run
SANDBOX_PID=""
cleanup() {
  if [ -f "$RUN/nginx.pid" ]; then kill "$(cat "$RUN/nginx.pid")" 2>/dev/null || true; fi
  if [ -n "$SANDBOX_PID" ]; then kill "$SANDBOX_PID" 2>/dev/null || true; fi
  sleep 0.2
  rm -rf "$RUN"
}
trap cleanup EXIT

wait_for_port() {  # port
  for _ in $(seq 100); do
    if (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; then return 0; fi
    sleep 0.05
  done
  return 1
}

BENCH_ARGS=(--benchmark_format=console)

# Starts nginx on $PORT from bench/nginx.conf.in; $1 is appended to its listen line
# ("" for HTTP/1.1, " http2"). Exports its process ids for the server CPU figures.
start_nginx() {
  sed -e "s|@RUN@|$RUN|g" -e "s|@PORT@|$PORT|g" -e "s|@WORKERS@|$WORKERS|g" -e "s|@HTTP2@|$1|g" \
    "$ROOT/bench/nginx.conf.in" >"$RUN/nginx.conf"
  "$NGINX" -p "$RUN" -c "$RUN/nginx.conf" -e "$RUN/nginx-error.log"
  wait_for_port "$PORT" || { cat "$RUN/nginx-error.log" >&2; exit 1; }
  local master
  master="$(cat "$RUN/nginx.pid")"
  TAVIK_BENCH_SERVER_PIDS="$(
    IFS=,
    pids=("$master" $(pgrep -P "$master"))
    echo "${pids[*]}"
  )"
  export TAVIK_BENCH_SERVER_PIDS
}

SERVER_NOTE=""
if [ -n "$NGINX" ]; then
  log "starting nginx ($("$NGINX" -v 2>&1 | sed 's/.*: //'), $WORKERS worker) on 127.0.0.1"
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
    -subj "/CN=127.0.0.1" -addext "subjectAltName=IP:127.0.0.1,DNS:localhost" \
    -keyout "$RUN/key.pem" -out "$RUN/cert.pem" 2>/dev/null
  PORT=""
  for _ in $(seq 20); do
    candidate=$((20000 + RANDOM % 30000))
    if [ -n "$(ss -ltnH "sport = :$candidate" 2>/dev/null)" ]; then continue; fi
    PORT=$candidate
    break
  done
  [ -n "$PORT" ] || { echo "no free loopback port found" >&2; exit 1; }
  export TAVIK_BENCH_SERVER="127.0.0.1:$PORT" TAVIK_BENCH_CA="$RUN/cert.pem"
  export TAVIK_BENCH_SERVER_KIND="nginx"
  # The answers nginx serves are the sandbox's answers to the SDK's own requests.
  "$BUILD/bench/tavik_bench_net" --dump-fixtures "$RUN/www"
  start_nginx ""

  log "network benchmarks against nginx"
  "$BUILD/bench/tavik_bench_net" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/net-nginx.json" \
    --benchmark_out_format=json
  log "transport breakdown (raw libcurl) against nginx"
  "$BUILD/bench/tavik_bench_transport_parts" "${BENCH_ARGS[@]}" \
    --benchmark_out="$RESULTS/transport-parts.json" --benchmark_out_format=json
  log "memory benchmark against nginx"
  "$BUILD/bench/tavik_bench_memory" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/memory.json" \
    --benchmark_out_format=json
  log "event store against nginx"
  "$BUILD/bench/tavik_bench_store" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/store.json" \
    --benchmark_out_format=json

  # The same network figures over HTTP/2: nginx again, now offering h2. The SDK negotiates
  # it and multiplexes on one connection; the raw clients ask for it and multiplex too.
  log "network benchmarks against nginx over HTTP/2"
  kill "$(cat "$RUN/nginx.pid")"
  for _ in $(seq 100); do [ -f "$RUN/nginx.pid" ] || break; sleep 0.05; done
  start_nginx " http2"
  TAVIK_BENCH_HTTP2=1 "$BUILD/bench/tavik_bench_net" "${BENCH_ARGS[@]}" \
    --benchmark_out="$RESULTS/net-nginx-h2.json" --benchmark_out_format=json
else
  SERVER_NOTE="nginx is not installed: the sandbox is the only server"
  echo "$SERVER_NOTE" >&2
fi

if [ "${TAVIK_BENCH_SKIP_SANDBOX:-0}" != 1 ] || [ -z "$NGINX" ]; then
  log "starting tavik-sandbox as a separate process"
  "$BUILD/sandbox/tavik-sandbox" --quiet --port 0 --cert-out "$RUN/sandbox-cert.pem" \
    >"$RUN/sandbox.out" &
  SANDBOX_PID=$!
  for _ in $(seq 100); do
    if grep -q '^https://' "$RUN/sandbox.out" 2>/dev/null; then break; fi
    sleep 0.05
  done
  BASE="$(head -n1 "$RUN/sandbox.out")"
  [ -n "$BASE" ] || { echo "tavik-sandbox did not start" >&2; exit 1; }
  export TAVIK_BENCH_SERVER="${BASE#https://}" TAVIK_BENCH_CA="$RUN/sandbox-cert.pem"
  export TAVIK_BENCH_SERVER_KIND="sandbox" TAVIK_BENCH_SERVER_PIDS="$SANDBOX_PID"
  log "network benchmarks against tavik-sandbox"
  "$BUILD/bench/tavik_bench_net" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/net-sandbox.json" \
    --benchmark_out_format=json
  if [ -z "$NGINX" ]; then
    "$BUILD/bench/tavik_bench_memory" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/memory.json" \
      --benchmark_out_format=json
    "$BUILD/bench/tavik_bench_store" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/store.json" \
      --benchmark_out_format=json
  fi
  kill "$SANDBOX_PID" 2>/dev/null || true
  wait "$SANDBOX_PID" 2>/dev/null || true
  SANDBOX_PID=""
fi

log "decoding benchmark"
"$BUILD/bench/tavik_bench_decode" "${BENCH_ARGS[@]}" --benchmark_out="$RESULTS/decode.json" \
  --benchmark_out_format=json

log "summary"
COMPILER="$(grep -E '^CMAKE_CXX_COMPILER:' "$BUILD/CMakeCache.txt" | cut -d= -f2)"
export BENCH_MACHINE_CPU="$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
export BENCH_MACHINE_NPROC="$(nproc)" BENCH_MACHINE_KERNEL="$(uname -sr)"
export BENCH_MACHINE_COMPILER="$("$COMPILER" --version | head -n1)"
export BENCH_LOAD_START="$LOAD_START" BENCH_LOAD_END="$(cut -d' ' -f1-3 /proc/loadavg)"
export BENCH_NGINX="${NGINX:+$("$NGINX" -v 2>&1 | sed 's/.*: //'), $WORKERS worker process(es)}"
export BENCH_SERVER_NOTE="$SERVER_NOTE"
python3 - "$RESULTS" <<'PY' | tee "$RESULTS/summary.txt"
import json, os, sys

results = sys.argv[1]

def load(name):
    path = os.path.join(results, name)
    if not os.path.exists(path):
        return None
    with open(path) as f:
        data = json.load(f)
    # Keyed by the benchmark's own name and its first argument: "decode_ads/10".
    keyed = {}
    for b in data["benchmarks"]:
        parts = b["name"].split("/")
        keyed[parts[0]] = b
        if len(parts) > 1 and parts[1].isdigit():
            keyed[parts[0] + "/" + parts[1]] = b
    return keyed, data["context"]

def fmt(value, digits=1):
    return "n/a" if value is None else f"{value:,.{digits}f}"

env = os.environ.get
print(f"machine:  {env('BENCH_MACHINE_NPROC')} x {env('BENCH_MACHINE_CPU')}, {env('BENCH_MACHINE_KERNEL')}")
print(f"compiler: {env('BENCH_MACHINE_COMPILER')} (Release)")
print(f"load avg: {env('BENCH_LOAD_START')} at start, {env('BENCH_LOAD_END')} at end (1/5/15 min)")
net = load("net-nginx.json") or load("net-sandbox.json")
if net:
    print(f"libcurl:  {net[1].get('libcurl', '?').split()[0]}")
    print(f"server:   {net[1].get('server', '?')}" + (f" ({env('BENCH_NGINX')})" if env('BENCH_NGINX') and 'nginx' in net[1].get('server', '') else ""))
if env("BENCH_SERVER_NOTE"):
    print(f"note:     {env('BENCH_SERVER_NOTE')}")
print()

rows = []
def row(figure, sdk, raw, ratio, target, met):
    rows.append((figure, sdk, raw, ratio, target, "" if met is None else ("met" if met else "MISSED")))

if net:
    b = net[0]
    f = b.get("fetch_banner")
    if f:
        row("1. fetch + decode one banner (median)", fmt(f["sdk_us"]) + " us", fmt(f["raw_io_thread_us"]) + " us (I/O thread)",
            fmt(f["ratio_io_thread"], 2) + "x", "<= 1.05x", f["ratio_io_thread"] <= 1.05)
        row("   against a reused handle, no hand-over", "", fmt(f["raw_us"]) + " us", fmt(f["ratio"], 2) + "x", "", None)
        row("   web service alone (no ad decoding)", fmt(f["webservice_us"]) + " us", "", fmt(f["webservice_us"] / f["raw_io_thread_us"], 2) + "x", "", None)
    e = b.get("event_burst_10000")
    if e:
        row("2. 10,000 events: throughput (all bursts)", fmt(e["sdk_events_per_s"], 0) + "/s", fmt(e["capped_events_per_s"], 0) + "/s (capped)",
            fmt(e["throughput_ratio"], 2) + "x", ">= 1.00x", e["throughput_ratio"] >= 1.0)
        row("   median of back-to-back burst rounds", "", "", fmt(e["throughput_ratio_median_pair"], 2) + "x", ">= 1.00x", e["throughput_ratio_median_pair"] >= 1.0)
        row("   lowest / highest", "", "", fmt(e["throughput_ratio_min_pair"], 2) + "x / " + fmt(e["throughput_ratio_max_pair"], 2) + "x", "", None)
        row("   client CPU per event", fmt(e["sdk_cpu_us_per_event"]) + " us", fmt(e["capped_cpu_us_per_event"]) + " us",
            fmt(e["cpu_ratio"], 2) + "x", "<= 1.20x", e["cpu_ratio"] <= 1.2)
        row("     host thread / transport thread", fmt(e["sdk_host_cpu_us_per_event"]) + " / " + fmt(e["sdk_io_cpu_us_per_event"]) + " us", "", "", "", None)
        row("   TLS connections opened (all bursts)", fmt(e["sdk_connections"], 0), fmt(e["capped_connections"], 0), "",
            "SDK <= raw", e["sdk_connections"] <= e["capped_connections"])
        row("   naive raw: all 10,000 in the multi", "", fmt(e["naive_events_per_s"], 0) + "/s, " + fmt(e["naive_cpu_us_per_event"]) + " us",
            fmt(e["throughput_ratio_naive"], 2) + "x", "", None)
        row("   handing 10,000 over (host thread)", fmt(e["sdk_fire_ms"]) + " ms", "", "", "", None)
        if "in_order_throughput_ratio" in e:
            row("   awaited one by one in order: throughput / CPU", fmt(e["in_order_host_cpu_us_per_event"]) + " us host", "",
                fmt(e["in_order_throughput_ratio"], 2) + "x / " + fmt(e["in_order_cpu_ratio"], 2) + "x", "", None)

decode = load("decode.json")
if decode:
    ratios = []
    for d in sorted((d for k, d in decode[0].items() if "/" in k), key=lambda d: d["ads"]):
        ratios.append(d["ratio"])
        row(f"3. decodeAds, {int(d['ads'])} ad(s), per ad", fmt(d["sdk_ns_per_ad"] / 1000, 2) + " us", fmt(d["raw_ns_per_ad"] / 1000, 2) + " us",
            fmt(d["ratio"], 2) + "x", "flat", None)
    if ratios:
        spread = max(ratios) / min(ratios)
        row("   ratio spread 1 -> 100 ads", "", "", fmt(spread, 2) + "x", "~1 (flat)", spread <= 1.5)

memory = load("memory.json")
if memory:
    m = memory[0].get("memory_bursts_10000")
    if m:
        bursts = sorted(int(k[5:].split("_")[0]) for k in m if k.startswith("burst") and k.endswith("_peak_MiB"))
        row("4. peak RSS rise, 10,000 in flight", fmt(m["sdk_peak_delta_MiB"]) + " MiB", fmt(m["raw_peak_delta_MiB"]) + " MiB",
            fmt(m["peak_ratio"], 2) + "x", "", None)
        if "raw_capped_peak_delta_MiB" in m:
            row("   raw, at most 12 in the multi at once", "", fmt(m["raw_capped_peak_delta_MiB"]) + " MiB", "", "", None)
        row("   live heap growth over bursts", fmt(m["live_heap_growth_MiB"], 2) + " MiB", "", "", "~0", abs(m["live_heap_growth_MiB"]) < 1.0)
        for n in bursts:
            row(f"   burst {n}: in flight / peak / after (RSS)",
                f"{fmt(m[f'burst{n}_inflight_MiB'], 0)} / {fmt(m[f'burst{n}_peak_MiB'], 0)} / {fmt(m[f'burst{n}_after_MiB'], 0)} MiB",
                f"live heap {fmt(m[f'burst{n}_live_heap_after_MiB'], 1)} MiB", "", "", None)
        row("   RSS after malloc_trim at the end", fmt(m["end_trimmed_MiB"]) + " MiB", "", "", "", None)

widths = [max(len(str(r[i])) for r in rows + [("figure", "SDK", "raw libcurl", "ratio", "target", "")]) for i in range(6)]
header = ("figure", "SDK", "raw libcurl", "ratio", "target", "")
for r in [header] + rows:
    print("  ".join(str(c).ljust(w) for c, w in zip(r, widths)).rstrip())

h2 = load("net-nginx-h2.json")
if h2:
    b = h2[0]
    print()
    print("over HTTP/2 (the same nginx offering h2; the SDK and the raw clients multiplex):")
    f = b.get("fetch_banner")
    if f:
        print(f"  1. fetch + decode one banner: SDK {fmt(f['sdk_us'])} us, raw on its own I/O thread {fmt(f['raw_io_thread_us'])} us:"
              f" {fmt(f['ratio_io_thread'], 2)}x (target <= 1.05x, {'met' if f['ratio_io_thread'] <= 1.05 else 'MISSED'});"
              f" reused handle {fmt(f['raw_us'])} us")
    e = b.get("event_burst_10000")
    if e:
        print(f"  2. 10,000 events: SDK {fmt(e['sdk_events_per_s'], 0)}/s, capped raw {fmt(e['capped_events_per_s'], 0)}/s:"
              f" {fmt(e['throughput_ratio'], 2)}x (median {fmt(e['throughput_ratio_median_pair'], 2)}x; target >= 1.00x,"
              f" {'met' if e['throughput_ratio_median_pair'] >= 1.0 else 'MISSED'})")
        print(f"     client CPU per event: SDK {fmt(e['sdk_cpu_us_per_event'])} us, raw {fmt(e['capped_cpu_us_per_event'])} us:"
              f" {fmt(e['cpu_ratio'], 2)}x (target <= 1.20x, {'met' if e['cpu_ratio'] <= 1.2 else 'MISSED'});"
              f" host / transport thread {fmt(e['sdk_host_cpu_us_per_event'])} / {fmt(e['sdk_io_cpu_us_per_event'])} us")
        print(f"     TLS connections: SDK {fmt(e['sdk_connections'], 0)}, raw {fmt(e['capped_connections'], 0)};"
              f" raw answers over h2: {fmt(100 * e.get('capped_http2_share', 0), 0)}%")

store = load("store.json")
if store and "event_store_10000" in store[0]:
    st = store[0]["event_store_10000"]
    print()
    print("event store (the same bursts with TAVIK::Builder::eventStore, against without it):")
    print(f"  caller's CPU per event call: {fmt(st['on_call_cpu_us'], 2)} us on, {fmt(st['off_call_cpu_us'], 2)} us off:"
          f" {fmt(st['call_cpu_ratio'], 2)}x (target <= 1.10x, {'met' if st['call_cpu_ratio'] <= 1.1 else 'MISSED'});"
          f" wall {fmt(st['call_ratio_median_pair'], 2)}x (median pair)")
    print(f"  throughput: {fmt(st['on_events_per_s'], 0)}/s on, {fmt(st['off_events_per_s'], 0)}/s off:"
          f" {fmt(st['throughput_ratio_median_pair'], 2)}x median pair (target >= 0.80x,"
          f" {'met' if st['throughput_ratio_median_pair'] >= 0.8 else 'MISSED'})")
    print(f"  drain of 10,000 stored events (median of 3): {fmt(st['drain_events_per_s'], 0)}/s, {fmt(st['drain_ratio'], 2)}x one in-memory burst"
          f" ({fmt(st.get('drain_ratio_min', 0), 2)}-{fmt(st.get('drain_ratio_max', 0), 2)}x)"
          f" (target >= 1.00x, {'met' if st['drain_ratio'] >= 1.0 else 'MISSED'});"
          f" plain SQLite loop {fmt(st['sqlite_loop_cpu_us_per_event'], 1)} us CPU per event")
    if 'drain_shared_ratio' in st:
        print(f"    to an event host that also serves the ads (one connection left free):"
              f" {fmt(st['drain_shared_events_per_s'], 0)}/s, {fmt(st['drain_shared_ratio'], 2)}x"
              f" ({fmt(st.get('drain_shared_ratio_min', 0), 2)}-{fmt(st.get('drain_shared_ratio_max', 0), 2)}x)")

parts = load("transport-parts.json")
if parts:
    p = parts[0]
    print()
    print("transport breakdown (raw libcurl only, same server; what each thing the SDK's transport does costs):")
    if "request_parts" in p:
        r = p["request_parts"]
        print(f"  one request: reused easy {fmt(r['reused_easy_us'])} us; new easy on a multi {fmt(r['multi_new_easy_us'])} us;"
              f" + CA blob {fmt(r['multi_ca_blob_us'])} us (+{fmt(r['ca_blob_cost_us'])});"
              f" driven by an I/O thread {fmt(r['io_thread_handoff_us'])} us (+{fmt(r['handoff_cost_us'])})")
    if "burst_feeding_10000" in p:
        b = p["burst_feeding_10000"]
        print("  10,000-GET burst on one multi handle (CPU per event, throughput):")
        for key, label in (("all_ca_file", "all added at once, CA file (naive footnote)"),
                           ("all_ca_blob", "all added at once, CA blob"),
                           ("capped_ca_file", f"at most {int(b['cap'])} in the multi at once, CA file (baseline)")):
            print(f"    {label:<48} {fmt(b[key + '_cpu_us_per_event']):>7} us  {fmt(b[key + '_events_per_s'], 0):>7}/s")
    if "new_connection" in p:
        c = p["new_connection"]
        print(f"  new TLS connection, system store ({fmt(c['blob_pem_kib'], 0)} KiB of PEM): as a blob {fmt(c['ca_blob_ms'], 2)} ms; "
              f"a file beside the CA folder {fmt(c['ca_file_and_dir_ms'], 2)} ms; a file alone (cached, as the SDK) {fmt(c['ca_file_alone_ms'], 2)} ms")

sandbox = load("net-sandbox.json")
if sandbox and load("net-nginx.json"):
    s, n = sandbox[0], load("net-nginx.json")[0]
    print()
    print("server check (same benchmarks against tavik-sandbox in its own process):")
    if "fetch_banner" in s:
        print(f"  raw fetch median (I/O thread): sandbox {fmt(s['fetch_banner']['raw_io_thread_us'])} us vs nginx {fmt(n['fetch_banner']['raw_io_thread_us'])} us;"
              f" SDK fetch: sandbox {fmt(s['fetch_banner']['sdk_us'])} us vs nginx {fmt(n['fetch_banner']['sdk_us'])} us")
        print(f"  server CPU during fetches: sandbox {fmt(s['fetch_banner']['server_cpu_pct'], 0)}% vs nginx {fmt(n['fetch_banner']['server_cpu_pct'], 0)}% of one core")
    if "event_burst_10000" in s:
        se, ne = s["event_burst_10000"], n["event_burst_10000"]
        print(f"  raw capped events/s: sandbox {fmt(se['capped_events_per_s'], 0)} vs nginx {fmt(ne['capped_events_per_s'], 0)};"
              f" SDK events/s: sandbox {fmt(se['sdk_events_per_s'], 0)} vs nginx {fmt(ne['sdk_events_per_s'], 0)}")
        print(f"  server CPU during SDK bursts: sandbox {fmt(se['sdk_server_cpu_pct'], 0)}% vs nginx {fmt(ne['sdk_server_cpu_pct'], 0)}%")
PY
