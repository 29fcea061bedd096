// probe.js: what the hostprobe plug-in gives a script.
//
//   hostprobe run examples/probe.js
//
// The host binds the plug-in's interface object as `probe` (--bind NAME
// picks another name) and runs this file. $log writes a line to the host's
// log; $include runs another file below this one's folder and hands back
// what that file put in $result.

var line = $include("lib/format.js");

// A text derived from the machine's network adapters.
$log(line("getMAC", probe.getMAC()));

// The first output of the Mersenne Twister for a seed. 32-bit numbers reach
// scripts as signed integers; `>>> 0` reads the value back as the unsigned
// number the generator gave.
var seed = 5489;
$log(line("mersenne_twister(" + seed + ")", probe.mersenne_twister(seed) >>> 0));

// Twice the argument, in 32-bit arithmetic.
$log(line("testfunction(21)", probe.testfunction(21)));
