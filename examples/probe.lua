-- probe.lua: what the hostprobe plug-in gives a Lua script.
--
--   hostprobe run examples/probe.lua
--
-- The host binds the plug-in's interface object as `probe` (--bind NAME
-- picks another name) and runs this file. Methods are called with ":", the
-- object being their first argument. log writes a line to the host's log,
-- from this file's name.

local function line(name, value)
    return name .. ": " .. tostring(value)
end

-- A text derived from the machine's network adapters.
log(line("getMAC", probe:getMAC()))

-- The first output of the Mersenne Twister for a seed. 32-bit numbers reach
-- scripts as signed integers; `% 2^32` reads the value back as the unsigned
-- number the generator gave.
local seed = 5489
log(line("mersenne_twister(" .. seed .. ")", probe:mersenne_twister(seed) % 2^32))

-- Twice the argument, in 32-bit arithmetic.
log(line("testfunction(21)", probe:testfunction(21)))
