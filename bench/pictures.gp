# The pictures of the benchmarks' page. The caller sets `data` and `images`, two folders, and `bars`, the number of
# ratios. The background is transparent; every colour has a contrast of more than 3 on white and on near black.
grey = "#7b7b7b"
set linetype 1 lc rgb "#3b82c4" lw 2 pt 7 ps 0.6
set linetype 2 lc rgb "#d9601a" lw 2 pt 5 ps 0.6
set linetype 3 lc rgb "#2e9d57" lw 2 pt 9 ps 0.7
style = "reset; set border 3 lc rgb grey; set tics nomirror tc rgb grey; set title tc rgb grey;" \
  ."set xlabel tc rgb grey; set ylabel tc rgb grey; set key tc rgb grey Left reverse; set grid lc rgb grey lw 0.4 dt 3"

# How many times a peer's speed, on a scale on which twice and half are equally far from 1.
set terminal svg size 860, 70 + 18 * bars font "sans-serif,13" noenhanced
set output images."/bench-ratios.svg"
eval style
set logscale x 2
set yrange [bars - 0.4:-0.6]
set ytics scale 0
set grid noytics
set lmargin 52
set xtics ("1/256" 1.0/256, "1/64" 1.0/64, "1/16" 1.0/16, "1/4" 0.25, "1" 1, "4" 4, "16" 16, "64" 64, "256" 256)
set xlabel "times the speed of the peer (logarithmic)"
set arrow from 1, graph 0 to 1, graph 1 nohead lc rgb grey lw 1.5
unset key
plot data."/ratios.dat" using (1.0):1:(1.0):2:($1 - 0.36):($1 + 0.36):($2 >= 1 ? 1 : 2):ytic(3) \
  with boxxyerror fs solid 1 noborder lc variable

# The share of the calls, on a scale of nines, that is over within a time.
set terminal svg size 860, 560 font "sans-serif,13" noenhanced
set output images."/bench-latency.svg"
eval style
set xrange [0:4.6]
set yrange [0.05:200000]
set logscale y
set xtics ("0" 0, "90" 1, "99" 2, "99.9" 3, "99.99" 4) font "sans-serif,11"
set ytics ("0.1 µs" 0.1, "1 µs" 1, "10 µs" 10, "100 µs" 100, "1 ms" 1e3, "10 ms" 1e4, "100 ms" 1e5)
unset key
file(name, count) = sprintf("%s/latency-%s-%d.dat", data, name, count)
isThere(path) = system("test -s ".path." && echo 1") eq "1"
set multiplot layout 2, 3
do for [i = 0:4] {
  count = 2 ** i
  set title sprintf("%d producer%s", count, count == 1 ? "" : "s")
  peer = isThere(file("spdlog", count)) ? "spdlog" : "oxu"
  plot file(peer, count) with lines lt 2, file("oxu", count) with lines lt 1
}
unset title
unset tics
unset border
unset grid
unset logscale
set key at graph 0.95, 0.75
set label "across: the share of the calls, in %" at graph 0.02, 0.4 tc rgb grey
set label "up: the time that so many stay below" at graph 0.02, 0.3 tc rgb grey
set xrange [0:1]
set yrange [0:1]
plot -1 with lines lt 1 title "libOxuTool", -1 with lines lt 2 title "spdlog, asynchronous"
unset multiplot

# The time of a launch over the memory of its host: median and range.
set terminal svg size 860, 380 font "sans-serif,13" noenhanced
set output images."/bench-launch.svg"
eval style
set key tmargin horizontal
set logscale xy
set xlabel "memory that the host has in use"
set xtics ("4 MiB" 4, "256 MiB" 256, "1 GiB" 1024, "4 GiB" 4096)
set xrange [3:5500]
set ylabel "milliseconds (logarithmic)"
plot data."/launch.dat" using 1:2:3:4 with yerrorlines lt 1 title "libOxuTool", \
  "" using 1:5:6:7 with yerrorlines lt 2 title "fork + exec", \
  "" using 1:8:9:10 with yerrorlines lt 3 title "posix_spawn"
