# Turns the JSON output of the benchmark programs (read with --slurp) into the
# Markdown table of figures, floors and ratios. $size: the stripped add-on in bytes.
#
# In-process, CPU-bound pairs compare CPU time, so that other load on the
# machine does not count; pairs that wait on another process or thread compare
# wall time. With repetitions, times and throughputs come from the best
# repetition (the one least disturbed by other load), counters from the worst.

# The repetitions of each benchmark, by run name.
def results:
  [.[].benchmarks[] | select(.run_type == "iteration")]
  | group_by(.run_name)
  | map({key: .[0].run_name, value: .})
  | from_entries;

def num:
  if . == null then "n/a"
  elif . >= 100 then (round | tostring)
  elif . >= 10 then ((. * 10 | round) / 10 | tostring)
  else ((. * 100 | round) / 100 | tostring) end;

# A number with its unit, or "n/a".
def show($unit): if . == null then "n/a" else (num + " " + $unit) end;

def ratio($x; $y): if $x == null or $y == null then null else $x / $y end;

def verdict($ratio; $op; $limit):
  if $ratio == null then "not measured"
  elif ($op == "<=" and $ratio <= $limit) or ($op == ">=" and $ratio >= $limit) then "met"
  else "missed" end;

# A table row of a measure with a target: `$also` must hold too for "met".
def target_row($what; $figure; $floor; $ratio; $op; $limit; $also):
  [$what, $figure, $floor, ($ratio | num) + "x", "\($op) \($limit)x",
   (verdict($ratio; $op; $limit) | if . == "met" and ($also | not) then "missed" else . end)];

def info_row($what; $figure; $floor; $ratio):
  [$what, $figure, $floor, (if $ratio == null then "-" else ($ratio | num) + "x" end), "none", "-"];

results as $runs
| def ok($name): $runs[$name] != null and ($runs[$name] | all(.error_occurred | not));
  def worst($name; $key): if ok($name) then $runs[$name] | map(.[$key]) | max else null end;
  # The best time of `$name` in units of `$unit` nanoseconds.
  def duration($name; $key; $unit):
    if ok($name)
    then $runs[$name]
         | map(.[$key] * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[.time_unit]) | min / $unit
    else null end;
  def cpu($name; $unit): duration($name; "cpu_time"; $unit);
  def wall($name; $unit): duration($name; "real_time"; $unit);
  def gbps($name):
    if ok($name) then $runs[$name] | map(.bytes_per_second) | max / 1e9 else null end;

  ["Measure", "Figure", "Floor", "Ratio", "Target", "Met"],
  ["---", "---", "---", "---", "---", "---"],

  (cpu("GetterAddon"; 1) as $f | cpu("GetterFloor"; 1) as $g
   | worst("GetterAddon"; "allocs_per_call") as $allocs
   | target_row("1. GetConfiguredNetmask through the loaded add-on, DEBUG off (CPU time)";
       "\($f | show("ns")), \($allocs | show("allocs/call"))";
       "\($g | show("ns")): virtual call + isEnabledFor(DEBUG)"; ratio($f; $g); "<="; 1.25;
       $allocs == 0)),

  (cpu("DeviceRead"; 1) as $f | cpu("DeviceReadFloor"; 1) as $g
   | target_row("2. FetchQuarnIpSettings on a 200-byte reply, DEBUG off (CPU time)";
       "\($f | show("ns")), \(worst("DeviceRead"; "allocs_per_call") | show("allocs/call"))";
       "\($g | show("ns")): 6 memmem"; ratio($f; $g); "<="; 3; true)),

  ((["1024", "1 KiB", null], ["65536", "64 KiB", 0.5], ["1048576", "1 MiB", 0.5]) as [$n, $text, $limit]
   | gbps("GetValueScan/\($n)") as $f | gbps("MemmemScan/\($n)") as $g
   | [("3. GetValue, key near the end of \($text) (throughput)"), ($f | show("GB/s")),
      "\($g | show("GB/s")): memmem"] as $what
   | if $limit == null then info_row($what[0]; $what[1]; $what[2]; ratio($f; $g))
     else target_row($what[0]; $what[1]; $what[2]; ratio($f; $g); ">="; $limit; true) end),

  (wall("Reselect"; 1e3) as $f | wall("ReselectFloor/real_time"; 1e3) as $g
   | target_row("4. Re-selection + GetCurrentIpAddress (ratio: times faster than the floor)";
       ($f | show("us")); "\($g | show("us")): spawn + wait `ip -j addr show`"; ratio($g; $f);
       ">="; 100; true)),

  (wall("Commit/real_time"; 1e3) as $f
   | (wall("CommitFloor/0/real_time"; 1e3) as $g
      | target_row("5. CommitConfiguration sending a static change to the device service";
          ($f | show("us")); "\($g | show("us")): 3 round trips, same sizes"; ratio($f; $g); "<="; 2;
          true)),
     (wall("CommitFloor/1/real_time"; 1e3) as $g
      | info_row("5b. the same against 3 round trips on a new connection per commit";
          ($f | show("us")); ($g | show("us")); ratio($f; $g))),
     (wall("ClientCommit/real_time"; 1e3) as $g
      | info_row("5c. the same against the client library alone making the commit's calls";
          ($f | show("us")); ($g | show("us")); ratio($f; $g)))),

  info_row("6. Cold start in a host: dlopen + addonStartup + Create + Init";
    "\(wall("ColdStart/manual_time"; 1e3) | show("us"))"; "-"; null),
  info_row("6b. Resident memory that loading and Init add to a fresh host";
    "\(worst("ColdStart/manual_time"; "rss_added_kb") | show("kB"))"; "-"; null),

  (($size / 1000) as $kb
   | ["7. Stripped Release add-on (strip --strip-unneeded)", ($kb | show("KB")), "-", "-",
      "<= 100 KB", (if $kb <= 100 then "met" else "missed" end)]),

  (wall("PropertyRead/real_time"; 1e3) as $f | wall("PropertyReadFloor/real_time"; 1e3) as $g
   | target_row("8. KNXnet/IP M_PropRead on loopback: request, ack, confirmation, ack";
       ($f | show("us")); "\($g | show("us")): bare UDP server, same datagram sizes";
       ratio($f; $g); "<="; 1.5; true)),

  (wall("Description/real_time"; 1e3) as $f | wall("DescriptionFloor/real_time"; 1e3) as $g
   | target_row("9. KNXnet/IP description request on loopback";
       ($f | show("us")); "\($g | show("us")): bare UDP server, same datagram sizes";
       ratio($f; $g); "<="; 1.5; true))

  | "| " + join(" | ") + " |"
