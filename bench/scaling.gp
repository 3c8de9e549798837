# The scaling plots: gnuplot -e "dir='RESULTS_DIR'; out='FILE.svg'" bench/scaling.gp
# Reads scaling-times.dat and throughput.dat (zel_bench DIR) and
# scaling-instructions.dat (bench/instructions.sh) from `dir`: tab-separated, one row per call
# and size, the series name first.
set terminal svg size 1100,820 dynamic font "sans,11"
set output out
set datafile separator "\t"
set grid
set multiplot layout 2,2

times = dir."/scaling-times.dat"
instr = dir."/scaling-instructions.dat"
# The rows of one series.
rows(file, name) = sprintf("< awk -F'\t' '$1 == \"%s\"' %s", name, file)

set logscale xy
set xrange [1:100000]
set key top left
set title "Time per call against list size (fastest batch median)"
set xlabel "resources in the list"
set ylabel "us per call"
plot rows(times, "torqResCtlRequest") using 2:3 with linespoints lc 1 title "torqResCtlRequest", \
     rows(times, "torqResCtlRequest") using 2:4 with linespoints lc 3 pt 6 title "its floor (ITorq::request)", \
     rows(times, "zelRuleCtl") using 2:3 with linespoints lc 2 title "zelRuleCtl", \
     rows(times, "zelRuleCtl") using 2:4 with linespoints lc 4 pt 6 title "its floor (ITorq::ruleCtl)"

set title "Own instructions against list size (callgrind, call - floor)"
set ylabel "own instructions per call"
plot rows(instr, "torqResCtlRequest") using 2:5 with linespoints lc 1 title "torqResCtlRequest", \
     rows(instr, "zelRuleCtl") using 2:5 with linespoints lc 2 title "zelRuleCtl"

set xrange [1:1000]
set title "torqResListeningRegister against registrations held"
set xlabel "registrations already held"
set ylabel "own instructions per call"
plot rows(instr, "torqResListeningRegister") using 2:5 with linespoints lc 3 title "own instructions"

unset logscale
set logscale x 2
set xrange [1:8]
set yrange [0:*]
set key bottom right
set title "Calls per second, all caller threads together"
set xlabel "caller threads"
set ylabel "calls per second"
plot dir."/throughput.dat" using 1:2 with linespoints lc 4 pt 6 title columnhead(2), \
     "" using 1:3 with linespoints lc 2 title columnhead(3), \
     "" using 1:4 with linespoints lc 1 title columnhead(4)
unset multiplot
