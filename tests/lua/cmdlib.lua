-- Running the vlanlua command from the command tests: a temporary folder for their files, shell
-- quoting, reading and writing files, and a run that gives the exit status, standard output and
-- standard error. ctest runs the tests from the build folder, where the command is bin/vlanlua.
local M = {}

M.CMD = "bin/vlanlua"
if os.getenv("VLANLUA_EMULATOR") then         -- a cross build's command runs under the emulator
  M.CMD = os.getenv("VLANLUA_EMULATOR") .. " " .. M.CMD
end

function M.sh_quote(s)
  return "'" .. s:gsub("'", "'\\''") .. "'"
end

function M.read(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local data = f:read("*a")
  f:close()
  return data
end

function M.write(path, text)
  local f = assert(io.open(path, "wb"))
  f:write(text)
  f:close()
end

M.dir = io.popen("mktemp -d"):read("*l")
os.execute("chmod 711 " .. M.sh_quote(M.dir))   -- another user may reach the files named in it
function M.path(name) return M.dir .. "/" .. name end

-- A shell command for an uninstrumented program: without the sanitizer runtime the tests preload.
function M.plain(command)
  return "env -u LD_PRELOAD " .. command
end

function M.exit_status(a, _, c)
  return type(a) == "number" and (a >= 256 and math.floor(a / 256) or a) or c   -- 5.1: a wait status
end

-- Runs the command (after the words of prefix, e.g. to run it as another user) with the given
-- arguments; its exit status, standard output and error.
function M.run_as(prefix, ...)
  local words = {}
  for i, a in ipairs({ ... }) do words[i] = M.sh_quote(a) end
  local status = M.exit_status(os.execute(prefix .. M.CMD .. " " .. table.concat(words, " ") .. " >" .. M.path("out") ..
    " 2>" .. M.path("err")))
  return status, M.read(M.path("out")), M.read(M.path("err"))
end
function M.run(...) return M.run_as("", ...) end

function M.lines(text)
  local out = {}
  for line in text:gmatch("[^\n]+") do out[#out + 1] = line end
  return out
end

function M.cleanup()
  os.execute("rm -rf " .. M.sh_quote(M.dir))
end

return M
