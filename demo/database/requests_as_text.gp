# The requests a minute in characters, for a terminal. Given: data, first and last as in report.gp.
set terminal dumb size 100,26
set xdata time
set timefmt "%s"
set format x "%H:%M"
set xrange [first:last]
set yrange [0:*]
set title "requests a minute, by proxy"
set key outside right
plot for [i = 1:4] sprintf("%s/requests", data) using 1:(column(i + 1)) with lines \
  title sprintf("proxy-%d", i)
