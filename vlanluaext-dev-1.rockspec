-- Builds and installs the module, cfgdb, the platform library and the vlanlua command for the Lua
-- that luarocks installs for:  luarocks make   (in a clone; --lua-version 5.4 to choose the Lua).
rockspec_format = "3.0"
package = "vlanluaext"
version = "dev-1"
source = {
   url = "git+file://.",
}
description = {
   summary = "VLAN extension module of the router's configuration scripts",
   detailed = [[
      require "libvlanluaext" registers eighteen script functions that merge 802.1Q and QinQ
      VLAN ranges, keep VLAN bitmaps, set and remove user-VLAN QinQ services and walk VLAN
      tables in get-next order against the configuration database; cfgdb opens and binds
      databases, and the vlanlua command runs configuration scripts against a database file.
   ]],
   license = "Proprietary",
}
dependencies = {
   "lua >= 5.1",
}
build = {
   type = "cmake",
   variables = {
      CMAKE_INSTALL_PREFIX = "$(PREFIX)",
      CMAKE_BUILD_TYPE = "Release",
      VLANLUA_ENGINE_OF = "$(LUA)",
      VLANLUA_ROCKS = "ON",
      VLANLUA_TESTS = "OFF",
      VLANLUA_BENCH = "OFF",
   },
}
