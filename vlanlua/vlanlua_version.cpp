/* --version: what the command runs with. The module's version is asked of the very file that a
 * script's require would load, so a stale module beside a new command shows. */
#include <dlfcn.h>
#include <sqlite3.h>
#include <stdio.h>

#include <string>

#include "sysdt_lua.h"
#include "vlanlua_cmd.h"

namespace {

constexpr const char *MODULE_NAME = "libvlanluaext";

/* The first file of the engine's C module path that exists for the module, or "". */
std::string ModuleFile()
{
    lua_State *L = luaL_newstate();
    if (L == nullptr) {
        return "";
    }
    luaL_openlibs(L);
    Cmd_SetModulePath(L);
    lua_getglobal(L, "package");
    lua_getfield(L, -1, "cpath");
    std::string strPath = lua_tostring(L, -1) != nullptr ? lua_tostring(L, -1) : "";
    lua_close(L);
    size_t ulAt = 0;
    while (ulAt <= strPath.size()) {
        size_t ulEnd = strPath.find(';', ulAt);
        std::string strFile = strPath.substr(ulAt, ulEnd == std::string::npos ? std::string::npos : ulEnd - ulAt);
        for (size_t q = strFile.find('?'); q != std::string::npos; q = strFile.find('?', q)) {
            strFile.replace(q, 1, MODULE_NAME);
        }
        FILE *pFile = strFile.empty() ? nullptr : fopen(strFile.c_str(), "rb");
        if (pFile != nullptr) {
            fclose(pFile);
            return strFile;
        }
        ulAt = ulEnd == std::string::npos ? strPath.size() + 1 : ulEnd + 1;
    }
    return "";
}

/* "1.0.0 (path)", or why there is none. */
std::string ModuleVersion()
{
    std::string strFile = ModuleFile();
    if (strFile.empty()) {
        return "not found on the module path";
    }
    void *pLib = dlopen(strFile.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (pLib == nullptr) {
        return "cannot be loaded from " + strFile + ": " + dlerror();
    }
    using VersionFn = const char *(*)();
    auto pfVersion = reinterpret_cast<VersionFn>(dlsym(pLib, "VLANLUA_Version"));
    std::string strVersion = pfVersion != nullptr ? pfVersion() : "of unknown version";
    dlclose(pLib);
    return strVersion + " (" + strFile + ")";
}

}  // namespace

int Cmd_PrintVersion()
{
    printf("vlanlua %s\n", VLANLUA_VERSION_TEXT);
    printf("module %s %s\n", MODULE_NAME, ModuleVersion().c_str());
    printf("engine %s\n", SYSDT_LUA_ENGINE);
    printf("SQLite %s\n", sqlite3_libversion());
    printf("schema %u\n", ECM_SCHEMA_VERSION);
    return 0;
}
