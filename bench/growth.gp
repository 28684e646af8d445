# Cost per file system over the number of file systems. data: size, then microseconds per file system by column.
set terminal svg size 760,420 font "sans-serif,13"
set output out
set logscale xy
set xlabel "file systems"
set ylabel "processor time per file system (µs)"
set xrange [8:1300]
set key outside right noenhanced
set grid ytics
set datafile missing "-"
plot for [i=2:6] data using 1:i with linespoints lw 2 title columnheader(i)
