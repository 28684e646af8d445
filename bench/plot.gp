# growth: microseconds per file system, by number of file systems and by program. parts: the same by part of a pass.
set terminal svg size 1000,420 font "sans-serif,13"
set output out
set multiplot layout 1,2
set datafile missing "-"
set grid ytics
set bmargin 7

set title "What a file system costs"
set logscale xy
set xlabel "file systems"
set ylabel "processor time per file system (µs)"
set xrange [8:1300]
set key below noenhanced
plot for [i=2:6] growth using 1:i with linespoints lw 2 title columnheader(i)

set title "What a pass over bind mounts is made of"
unset logscale
set xrange [*:*]
set yrange [0:*]
set style data histograms
set style histogram rowstacked
set style fill solid 0.8 border -1
set boxwidth 0.6
set xtics nomirror
plot for [i=2:6] parts using i:xtic(1) title columnheader(i)
