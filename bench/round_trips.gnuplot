# Time of a round trip against the body's size: gnuplot -e "data='FILE'" round_trips.gnuplot >FILE.svg
set terminal svg size 800,560 font "sans-serif,13" background "white"
set logscale xy
set format x "%.0f"
set xrange [8:2000000]
set xtics ("0" 8, "16" 16, "256" 256, "4 Ki" 4096, "64 Ki" 65536, "1 Mi" 1048576)
set xlabel "body / bytes"
set ylabel "round trip / us"
set key top left
set grid
set label "lines: plain ZeroMQ, points: library" at graph 0.03, 0.68
names = "service,ipc server,ipc client,ipc server,inproc client,inproc"
array colours[5] = ["#b5179e", "#d1495b", "#edae49", "#00798c", "#30638e"]
# A size of 0 has no logarithm: it is drawn at 8.
at(size) = size == 0 ? 8 : size
plot for [i=1:5] data using (at($1)):(column(2 * i)) with lines lw 2 lc rgb colours[i] title word(names, i), \
     for [i=1:5] data using (at($1)):(column(2 * i + 1)) with points pt 7 ps 0.7 lc rgb colours[i] notitle
