#!/usr/bin/env bash
# Shows a thousand tags going straight into ClickHouse, as docs/receiving-tags.md tells: a server of
# this script's own on loopback, the tables of docs/clickhouse.sql, a replayed script, and that
# document's three queries. Exits 0 only when every tag and every figure is there.
#
#   receive_demo.sh CLICKHOUSE_SERVER VANTAMO
set -euo pipefail
export LC_ALL=C

server=$(realpath "$1")
vantamo=$(realpath "$2")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
document=docs/receiving-tags.md

scratch=$(mktemp -d -t vantamo-receive-XXXXXXXX)
pid=
replaying=

# clean_up: ends the server, at the latest with force after 10 s, and removes what it has left.
clean_up() {
  trap '' INT TERM
  if [ -n "$replaying" ]; then
    kill "$replaying" 2>/dev/null || true
    wait "$replaying" 2>/dev/null || true  # it writes into what is removed below
  fi
  if [ -n "$pid" ]; then
    kill "$pid" 2>/dev/null || true
    for ((i = 0; i < 100; ++i)); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  fi
  rm -rf "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
  echo "receive-demo: $*" >&2
  { grep -h 'Exception' "$scratch/server.err.log" | tail -n 3 | cut -c -300; } >&2 2>/dev/null || true
  exit 1
}

write_server_settings() {
  mkdir -p "$scratch"/{data,tmp,files}
  cat >"$scratch/config.xml" <<XML
<yandex>
  <logger>
    <level>warning</level>
    <log>$scratch/server.log</log>
    <errorlog>$scratch/server.err.log</errorlog>
  </logger>
  <display_name>${scratch##*/}</display_name>
  <listen_host>127.0.0.1</listen_host>
  <http_port>$1</http_port>
  <path>$scratch/data/</path>
  <tmp_path>$scratch/tmp/</tmp_path>
  <user_files_path>$scratch/files/</user_files_path>
  <timezone>UTC</timezone>
  <mark_cache_size>67108864</mark_cache_size>
  <users_config>users.xml</users_config>
  <default_profile>default</default_profile>
  <default_database>default</default_database>
</yandex>
XML
  cat >"$scratch/users.xml" <<'XML'
<yandex>
  <profiles><default/></profiles>
  <quotas><default/></quotas>
  <users>
    <default>
      <password></password>
      <networks><ip>127.0.0.1</ip></networks>
      <profile>default</profile>
      <quota>default</quota>
    </default>
  </users>
</yandex>
XML
}

# Answers whether the server at $url is ours: another one may have been faster to take the port.
is_ours() {
  curl --noproxy '*' -sS -i -m 5 "$url/?query=SELECT+1" 2>/dev/null |
    grep -q "^X-ClickHouse-Server-Display-Name: ${scratch##*/}"
}

# Starts the server on a port that is free; sets pid and url.
start_server() {
  local port deadline
  for _ in 1 2 3 4 5; do
    port=$((20000 + (RANDOM * 32768 + RANDOM) % 12000))
    url=http://127.0.0.1:$port
    write_server_settings "$port"
    # In a process group of its own: Ctrl-C is for this script, which ends it in order.
    setsid "$server" --config-file="$scratch/config.xml" >"$scratch/server.out" 2>&1 &
    pid=$!
    deadline=$((SECONDS + 60))
    while kill -0 "$pid" 2>/dev/null; do
      if is_ours; then return; fi
      [ "$SECONDS" -lt "$deadline" ] || fail "the server was not ready within 60 s"
      sleep 0.1
    done
    pid=
  done
  fail "the server did not start: $(tail -n 1 "$scratch/server.out")"
}

# query SQL: its result. An answer other than 2xx is an error, and shown.
query() {
  curl --noproxy '*' -sS --fail-with-body -m 60 "$url/" --data-binary "$1" ||
    fail "the server refuses: $1"
}

create_tables() {
  local statement
  # A statement at a time is what the server takes.
  while IFS= read -r -d ';' statement; do
    query "$statement"
  done < <(grep -v '^--' docs/clickhouse.sql)
}

# The text of $document's query of that name.
documented_query() {
  awk -v mark="<!-- query: $1 -->" '
    $0 == mark { found = 1 } found && /^```$/ { exit } shown { print } found && /^```sql/ { shown = 1 }
  ' "$document"
}

# Forty sessions of 25 events: a thousand lines that fire, and into files what the queries must then
# answer. One order's total is no number.
write_script() {
  awk -v scratch="$scratch" '
    function call(name, members) {
      printf "{\"call\":\"%s\"%s}\n", name, members
      count[name]++
    }
    function member(name, value) { return sprintf(",\"%s\":\"%s\"", name, value) }
    function line(s, p) {
      worth += p * (p + 0.5)
      return member("productId", "sku-" s "-" p) member("productName", "Müller \\\"" p "\\\"") \
             member("quantity", p) member("baseUnitPrice", p ".50") \
             member("currencyCode", currency(s)) ",\"attributes\":[\"red\",\"\"]"
    }
    function sorted(name) { return "LC_ALL=C sort > " scratch "/" name ".expected" }
    function currency(s) { return s % 4 == 0 ? "EUR" : "USD" }
    BEGIN {
      print "{\"call\":\"startup\"}"
      for (s = 1; s <= 40; ++s) {
        if (s > 1) print "{\"call\":\"startNewSession\"}"
        for (p = 1; p <= 12; ++p) call("firePageView", member("pageId", "page-" s "-" p) \
                                       ",\"attributes\":[\"a" p "\",\"\",\"c;\\\\ \\n\"]")
        for (p = 1; p <= 5; ++p)
          call("fireProductview", member("pageId", "page-" s "-1") \
                                  member("productId", "sku-" s "-" p) member("productName", "n"))
        for (p = 1; p <= 3; ++p) call("fireShopAction5", line(s, p))
        if (s % 2 == 0) {
          total = s * 1000 + 25  # in hundredths
          text = s == 40 ? "on request" : sprintf("%d.%02d", total / 100, total % 100)
          order = member("orderId", "order-" s) member("customerId", "customer-" s)
          for (p = 1; p <= 2; ++p)
            call("fireShopAction9", line(s, p) order member("orderSubTotal", text))
          call("fireOrder", order member("subtotal", text) member("shippingCharge", "4.90") \
                            member("currencyCode", currency(s)))
          orders[currency(s)]++
          if (s < 40) revenue[currency(s)] += total
        } else {
          call("fireRegistration", member("customerId", "customer-" s) member("email", "a@b"))
          call("fireConversionEvent", member("eventId", "event-" s) member("actionType", "1"))
          call("fireElement", member("elementId", "element-" s))
        }
        call("fireLinkClick", member("pageId", "page-" s "-1") member("link", "/next"))
        call("fireImpression", member("pageId", "page-" s "-1") ",\"vqsp\":[\"x\",\"y\"]")
      }
      # The first page view of a session goes out as technical properties.
      count["firePageView"] -= 40
      count["technicalProperties"] = 40
      for (name in count) print name "\t" count[name] | sorted("events")
      printf "%.8f\n", worth > (scratch "/prices.expected")
      print "40\t25\t25\t20" > (scratch "/sessions.expected")
      for (c in revenue)
        printf("%s\t%d\t%d.%02d00\n", c, orders[c], revenue[c] / 100, revenue[c] % 100) | \
            sorted("revenue")
    }' >"$scratch/script.jsonl"
  [ "$(grep -c '"call":"fire' "$scratch/script.jsonl")" -eq 1000 ] || fail "not a thousand events"
}

# The settings of $document, with this server in the place of the one named there.
write_settings() {
  mkdir -p "$scratch/bundle/VTMod.bundle"
  grep -m 1 '"PostMessageUrl"' "$document" | sed "s|http://clickhouse.example:8123|$url|" \
    >"$scratch/bundle/VTMod.bundle/settings.json"
  grep -q "$url/" "$scratch/bundle/VTMod.bundle/settings.json" || fail "no settings in $document"
}

replay() {
  local status=0
  XDG_CACHE_HOME=$scratch/caches VANTAMO_DEBUG=0 "$vantamo" replay --bundle "$scratch/bundle" \
    --drain 300 "$scratch/script.jsonl" >"$scratch/answers" &
  # In the background, so that a signal to this script is heeded at once.
  replaying=$!
  wait "$replaying" || status=$?
  replaying=
  [ "$status" -eq 0 ] || fail "vantamo replay answers $status: not every tag was delivered"
  ! grep -v '"result":true}$' "$scratch/answers" >&2 || fail "a call did not answer true"
}

# expect WHAT QUERY EXPECTED: holds the result, which is text with tabs, to what was expected.
expect() {
  diff <(printf '%s\n' "$3") <(query "$2") >&2 || fail "$1: not what the script implies (<)"
}

show() {
  local text expected
  text=$(documented_query "$1")
  [ -n "$text" ] || fail "no query \"$1\" in $document"
  echo
  echo "$text"
  query "$text FORMAT PrettyCompactNoEscapes"
  expected=$(cat "$scratch/$1.expected")
  expect "$1" "$text" "$expected"
}

# A tag of a later version, delivered twice: the unknown key is passed over, the repeat recognised.
check_repeat() {
  local target tag='{"tid":"15","st":"1700000000","eid":"again","e_a1":"x","later":"unknown"}' i
  target=$(sed 's/.*"PostMessageUrl": *"\([^"]*\)".*/\1/' "$scratch/bundle/VTMod.bundle/settings.json")
  for i in 1 2; do
    curl --noproxy '*' -sS --fail-with-body -m 60 "$target" --data-binary "$tag" ||
      fail "a tag with an unknown key is refused"
  done
  query "OPTIMIZE TABLE vantamo.tags_buffer"
  expect "a repeated tag" \
    "SELECT count(), uniqExact(fingerprint) FROM vantamo.events WHERE elementId = 'again'" $'2\t1'
  expect "all without repeats" \
    "SELECT count() FROM (SELECT kind FROM vantamo.events LIMIT 1 BY time, fingerprint)" 1001
  echo "A tag with a key that no table knows, delivered twice: 2 rows, 1 fingerprint"
}

command -v curl >/dev/null || fail "curl is missing"
start_server
echo "ClickHouse $(query 'SELECT version()') at $url"
create_tables
write_settings
write_script
replay
query "OPTIMIZE TABLE vantamo.tags_buffer"
expect "rows" "SELECT count(), uniqExact(fingerprint) FROM vantamo.events" $'1000\t1000'
expect "attributes" "SELECT DISTINCT attributes FROM vantamo.events WHERE pageId = 'page-7-3'" \
  "['a3','','c;\\\\ \\n']"
expect "prices" "SELECT sum(quantity * baseUnitPrice) FROM vantamo.events" "$(cat "$scratch/prices.expected")"
echo "1000 tags were sent, 1000 rows have arrived"
for name in events sessions revenue; do show "$name"; done
check_repeat
