# The scaling plots: gnuplot -e "dir='RESULTS_DIR'; out='FILE.svg'" bench/scaling.gp
# Reads scaling-times.dat and throughput.dat (zel_instructions --time) and
# scaling-instructions.dat (bench/instructions.sh) from `dir`.
set terminal svg size 1100,820 dynamic font "sans,11"
set output out
set datafile separator "\t"
set key top left
set grid
set multiplot layout 2,2

times = dir."/scaling-times.dat"
instr = dir."/scaling-instructions.dat"
pick(name, col) = (strcol(1) eq name) ? column(col) : NaN

set logscale xy
set title "Time per call against list size"
set xlabel "resources in the list"
set ylabel "median us per call"
plot times using 2:(pick("torqResCtlRequest", 3)) with linespoints title "torqResCtlRequest", \
     times using 2:(pick("torqResCtlRequest", 4)) with linespoints dt 2 title "its floor (ITorq::request)", \
     times using 2:(pick("zelRuleCtl", 3)) with linespoints title "zelRuleCtl", \
     times using 2:(pick("zelRuleCtl", 4)) with linespoints dt 2 title "its floor (ITorq::ruleCtl)"

set title "Own instructions against list size (callgrind)"
set ylabel "own instructions per call (call - floor)"
plot instr using 2:(pick("torqResCtlRequest", 5)) with linespoints title "torqResCtlRequest", \
     instr using 2:(pick("zelRuleCtl", 5)) with linespoints title "zelRuleCtl"

set title "torqResListeningRegister against registrations held"
set xlabel "registrations already held"
set ylabel "median us per call / own instructions per call / 1000"
plot times using 2:(pick("torqResListeningRegister", 3)) with linespoints title "call, us", \
     times using 2:(pick("torqResListeningRegister", 4)) with linespoints dt 2 title "floor, us", \
     instr using 2:(pick("torqResListeningRegister", 5)/1000) with linespoints title "own instructions / 1000"

unset logscale
set logscale x 2
set title "Calls per second, all caller threads together"
set xlabel "caller threads"
set ylabel "calls per second"
set yrange [0:*]
set key bottom right
plot dir."/throughput.dat" using 1:2 with linespoints dt 2 title columnhead(2), \
     "" using 1:3 with linespoints title columnhead(3), \
     "" using 1:4 with linespoints title columnhead(4)
unset multiplot
