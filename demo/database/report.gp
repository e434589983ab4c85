# Draws what the database holds. Given: data, the directory of the tables, type, the terminal, image,
# the file to write, and the times of the story: drop, drop_end, errors, errors_end, kill, pause and
# pause_end, seconds since the epoch.

if (type eq "png") {
  set terminal pngcairo size 1100,1150 font "DejaVu Sans,10" linewidth 1.5
} else {
  set terminal svg size 1100,1150 font "DejaVu Sans,12" linewidth 1.5 background "white"
}
set output image

array colour[4] = ["#c03020", "#2060c0", "#309040", "#806090"]
name(i) = sprintf("proxy-%d", i)
minute(seconds) = strftime("%H:%M", seconds)

set xdata time
set timefmt "%s"
set format x "%H:%M"
set xrange [first:last]
set y2range [0:1]
set offsets 0, 0, graph 0.3, 0 # room for labels above the curves
set grid xtics ytics linecolor "#dddddd"
set border 3
set tics nomirror
set style fill solid 0.18 noborder
set lmargin 10
set rmargin 3
set key outside above center horizontal samplen 2 maxrows 2
unset y2tics

set object 1 rectangle from pause, graph 0 to pause_end, graph 1 behind \
  fillcolor rgb "#b0b0b0" fillstyle solid 0.45 noborder
set arrow 1 from kill, graph 0 to kill, graph 1 nohead linecolor rgb "black" dashtype 2 front

table(what) = sprintf("%s/%s", data, what)
# Where a proxy is not in service; column 1 is the time.
out(i) = (column(i + 1) == 0 ? 1 : NaN)

set multiplot layout 4,1 title \
  "What two applications report of their four proxies, as the database gives it back" font ",14"

do for [panel in "requests time_outs system_errors delay"] {
  if (panel eq "requests") {
    set ylabel "requests a minute"
    set label 1 "collect server in use\nis killed, reports\nmove to the other" \
      at kill, graph 0.3 right offset -1,0 front
    set label 2 "database\nis stopped,\nnothing\nis lost" at (pause + pause_end) / 2, graph 0.4 center front
  }
  if (panel eq "time_outs") {
    set ylabel "time-outs a minute"
    set label 3 "proxy-1 drops its requests" at drop, graph 0.94 front
    set arrow 2 from drop, graph 0.86 to drop_end, graph 0.86 heads linecolor rgb colour[1] front
  }
  if (panel eq "system_errors") {
    set ylabel "system errors a minute"
    set label 3 "proxy-2 answers with errors" at errors, graph 0.94 front
    set arrow 2 from errors, graph 0.86 to errors_end, graph 0.86 heads linecolor rgb colour[2] front
  }
  if (panel eq "delay") {
    set ylabel "mean delay, ms"
    set xlabel "time of the applications' clock, 20 times as fast as real time; " . \
      "a value is that of the minute before it"
  }
  set yrange [0:*]
  plot for [i = 1:2] table("in_service") using 1:(out(i)) axes x1y2 with filledcurves y=0 \
         linecolor rgb colour[i] title (panel eq "requests" ? name(i) . " judged unavailable" : ""), \
       for [i = 1:4] table(panel) using 1:(column(i + 1)) with lines linewidth 1.5 \
         linecolor rgb colour[i] title (panel eq "requests" ? name(i) : "")
  unset label
  unset arrow 2
}
unset multiplot
