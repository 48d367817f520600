/* Random argument lists for the script functions. Template letters, one per argument:
 *   i interface index   v VLAN ID    r VR ID      n count or plain number   q query type
 *   b boolean           s word       k key text   t service type
 *   B bitmap table (1..512 bytes)    S service pairs table
 *   U user-VLAN request table (ivvvvrnnnk)   Q QinQ match table (invvvvinrnk)   D Dot1Q match table (ivvnrnnn)
 * Uses only Lua C API functions that every engine has. */
#include "vlanlua_fuzz_args.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

namespace {

/* ---- sources ---- */

template <typename T, size_t N>
const T &Pick(VlanFuzzSource &src, const T (&aTable)[N])
{
    return aTable[src.Below(N)];
}

constexpr int64_t kEdgeInts[] = {
    0, 1, -1, 2, 255, 256, 4093, 4094, 4095, 4096, 4097, 65535, 65536, 0x7FFFFFFF, 0x80000000LL,
    0xFFFFFFFELL, 0xFFFFFFFFLL, 0x100000000LL, -4096, std::numeric_limits<int64_t>::max(),
    std::numeric_limits<int64_t>::min()};

/* Every engine compiles these to doubles; NaN and the infinities are built at run time. */
double SpecialFloat(VlanFuzzSource &src)
{
    static const double adValues[] = {0.5, -0.5, 4094.5, 1e300, -1e300, 9223372036854775808.0,
                                      -9223372036854775808.0, 18446744073709551616.0, 4294967296.0, -0.0};
    switch (src.Below(4)) {
        case 0: return std::nan("");
        case 1: return HUGE_VAL;
        case 2: return -HUGE_VAL;
        default: return Pick(src, adValues);
    }
}

void PushEdgeInt(lua_State *L, VlanFuzzSource &src)
{
    lua_pushinteger(L, static_cast<lua_Integer>(Pick(src, kEdgeInts)));
}

/* A number of any kind: edge integers, small and wide ones, special floats. */
void PushAnyNumber(lua_State *L, VlanFuzzSource &src)
{
    switch (src.Below(4)) {
        case 0: PushEdgeInt(L, src); break;
        case 1: lua_pushinteger(L, static_cast<lua_Integer>(src.Below(5000))); break;
        case 2: lua_pushinteger(L, static_cast<lua_Integer>(src.Wide())); break;
        default: lua_pushnumber(L, SpecialFloat(src)); break;
    }
}

/* Strings: empty, command words, zero bytes inside, exactly 64 and 65 bytes, 10,000 bytes. */
void PushAnyString(lua_State *L, VlanFuzzSource &src)
{
    static const char *const apcWords[] = {"", "d", "dis", "display", "D", "dix", "displayx", "svc"};
    switch (src.Below(6)) {
        case 0: lua_pushstring(L, Pick(src, apcWords)); break;
        case 1: lua_pushlstring(L, "dis\0play", 8); break;
        case 2: lua_pushstring(L, std::string(src.OneIn(2) ? 64 : 65, 'k').c_str()); break;
        case 3: lua_pushstring(L, std::string(10000, static_cast<char>('a' + src.Below(26))).c_str()); break;
        case 4: lua_pushlstring(L, std::string(10000, '\0').c_str(), 10000); break;
        default: {
            std::string str(src.Below(80), '\0');
            for (char &c : str) {
                c = static_cast<char>(src.Below(256));
            }
            lua_pushlstring(L, str.data(), str.size());
            break;
        }
    }
}

int NoOp(lua_State *)
{
    return 0;
}

int g_iLightTarget;   /* the address a light userdata argument points at */

void PushAnyValue(lua_State *L, VlanFuzzSource &src, int iDepth);

/* Tables of every length, with holes, string keys and nested tables. */
void PushAnyTable(lua_State *L, VlanFuzzSource &src, int iDepth)
{
    static const int aiLens[] = {0, 1, 2, 3, 7, 8, 9, 10, 11, 12, 511, 512, 513};
    int iLen = src.OneIn(2) ? Pick(src, aiLens) : static_cast<int>(src.Below(20));
    lua_createtable(L, iLen, 2);
    for (int i = 1; i <= iLen; i++) {
        if (src.OneIn(16)) {
            continue;   /* a hole */
        }
        if (iDepth < 2 && src.OneIn(12)) {
            PushAnyValue(L, src, iDepth + 1);
        } else {
            lua_pushinteger(L, static_cast<lua_Integer>(src.Below(300)));
        }
        lua_rawseti(L, -2, i);
    }
    if (src.OneIn(4)) {
        PushAnyValue(L, src, 2);
        lua_setfield(L, -2, src.OneIn(2) ? "n" : "x");
    }
}

void PushAnyValue(lua_State *L, VlanFuzzSource &src, int iDepth)
{
    switch (src.Below(9)) {
        case 0: lua_pushnil(L); break;
        case 1: lua_pushboolean(L, static_cast<int>(src.Below(2))); break;
        case 2: case 3: PushAnyNumber(L, src); break;
        case 4: case 5: PushAnyString(L, src); break;
        case 6: if (iDepth < 2) { PushAnyTable(L, src, iDepth + 1); } else { lua_pushnil(L); } break;
        case 7: lua_pushcfunction(L, NoOp); break;
        default: lua_pushlightuserdata(L, &g_iLightTarget); break;
    }
}

/* ---- values of the kind an argument wants ---- */

void PushFrom(lua_State *L, VlanFuzzSource &src, const int64_t *plPool, size_t ulNum)
{
    lua_pushinteger(L, static_cast<lua_Integer>(plPool[src.Below(static_cast<uint32_t>(ulNum))]));
}

#define PUSH_POOL(L, src, ...)                                        \
    do {                                                              \
        static const int64_t alPool[] = {__VA_ARGS__};                \
        PushFrom((L), (src), alPool, sizeof(alPool) / sizeof(alPool[0])); \
    } while (0)

void PushTable(lua_State *L, VlanFuzzSource &src, const char *pcFields, bool bStrict);
void PushPairs(lua_State *L, VlanFuzzSource &src, bool bStrict);
void PushBitMap(lua_State *L, VlanFuzzSource &src, bool bStrict);

/* A value of the kind the letter names; an edge value of any kind one time in eight. */
void PushTyped(lua_State *L, VlanFuzzSource &src, char cKind, bool bStrict)
{
    if (cKind != 'B' && cKind != 'S' && cKind != 'U' && cKind != 'Q' && cKind != 'D' && src.OneIn(16)) {
        PushEdgeInt(L, src);
        return;
    }
    switch (cKind) {
        case 'i': PUSH_POOL(L, src, 0x7001, 0x7001, 0x7001, 0x7002, 0x7002, 0x7003, 0x7004, 0x7000, 0x1001, 0x1003,
                            0x1000, 0, 0xFFFFFFFE);
                  break;
        case 'v': if (src.OneIn(6)) { lua_pushinteger(L, static_cast<lua_Integer>(src.Below(4096))); }
                  else { PUSH_POOL(L, src, 1, 2, 5, 6, 10, 11, 12, 20, 21, 99, 100, 101, 120, 149, 150, 151,
                                   199, 200, 201, 249, 250, 4093, 4094); }
                  break;
        case 'r': PUSH_POOL(L, src, 7, 7, 1, 0, 2); break;
        case 'n': PUSH_POOL(L, src, 0, 1, 2, 3, 10, 11, 22, 33, 42, 64, 100, 1000); break;
        case 'q': PUSH_POOL(L, src, 0, 1, 2, 3); break;
        case 't': PUSH_POOL(L, src, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 255, 17, 256); break;
        case 'b': lua_pushboolean(L, static_cast<int>(src.Below(2))); break;
        case 's': case 'k': PushAnyString(L, src); break;
        case 'B': PushBitMap(L, src, bStrict); break;
        case 'S': PushPairs(L, src, bStrict); break;
        case 'U': PushTable(L, src, "ivvvvrnnnk", bStrict); break;
        case 'Q': PushTable(L, src, "invvvvinrnk", bStrict); break;
        case 'D': PushTable(L, src, "ivvnrnnn", bStrict); break;
        default: lua_pushnil(L); break;
    }
}

/* Breaks a table now and then: one element off or on, a hole, a string key, a nested table. */
void Spoil(lua_State *L, VlanFuzzSource &src, int iLen)
{
    switch (src.Below(5)) {
        case 0: lua_pushnil(L); lua_rawseti(L, -2, iLen); break;
        case 1: PushAnyValue(L, src, 1); lua_rawseti(L, -2, iLen + 1); break;
        case 2: lua_pushnil(L); lua_rawseti(L, -2, 1 + static_cast<int>(src.Below(static_cast<uint32_t>(iLen)))); break;
        case 3: PushAnyValue(L, src, 1); lua_setfield(L, -2, "key"); break;
        default: PushAnyTable(L, src, 1); lua_rawseti(L, -2, 1 + static_cast<int>(src.Below(static_cast<uint32_t>(iLen)))); break;
    }
}

/* Most ranges are given the right way round: elements iKey and iKey + 1 swapped when backwards. */
void OrderRange(lua_State *L, VlanFuzzSource &src, int iKey)
{
    lua_rawgeti(L, -1, iKey);
    lua_rawgeti(L, -2, iKey + 1);
    bool bBackwards = lua_type(L, -2) == LUA_TNUMBER && lua_type(L, -1) == LUA_TNUMBER &&
                      lua_tonumber(L, -2) > lua_tonumber(L, -1);
    if (bBackwards && !src.OneIn(8)) {
        lua_rawseti(L, -3, iKey);
        lua_rawseti(L, -2, iKey + 1);
    } else {
        lua_pop(L, 2);
    }
}

/* A record table, element i of the kind of pcFields[i - 1]; "vv" is a range. */
void PushTable(lua_State *L, VlanFuzzSource &src, const char *pcFields, bool bStrict)
{
    int iLen = static_cast<int>(std::strlen(pcFields));
    lua_createtable(L, iLen, 0);
    for (int i = 1; i <= iLen; i++) {
        if (!bStrict && src.OneIn(20)) {
            PushAnyValue(L, src, 1);
        } else {
            PushTyped(L, src, pcFields[i - 1], bStrict);
        }
        lua_rawseti(L, -2, i);
    }
    for (int i = 1; i < iLen; i++) {
        if (pcFields[i - 1] == 'v' && pcFields[i] == 'v') {
            OrderRange(L, src, i);
            i++;
        }
    }
    if (!bStrict && src.OneIn(6)) {
        Spoil(L, src, iLen);
    }
}

/* Service pairs: type, value, type, value, ... */
void PushPairs(lua_State *L, VlanFuzzSource &src, bool bStrict)
{
    int iPairs = static_cast<int>(src.Below(5));
    lua_createtable(L, 2 * iPairs, 0);
    for (int i = 0; i < iPairs; i++) {
        PushTyped(L, src, 't', bStrict);
        lua_rawseti(L, -2, 2 * i + 1);
        PUSH_POOL(L, src, 0, 1, 3, 5, 7, 9, 0xFFFFFFFF);
        lua_rawseti(L, -2, 2 * i + 2);
    }
    if (!bStrict && src.OneIn(6)) {
        Spoil(L, src, 2 * iPairs);
    }
}

/* A bitmap in script form: 1 to 512 bytes, now and then 0 or 513 elements or non-byte values. */
void PushBitMap(lua_State *L, VlanFuzzSource &src, bool bStrict)
{
    static const int aiLens[] = {1, 2, 3, 4, 8, 64, 511, 512};
    int iLen = src.OneIn(2) ? Pick(src, aiLens) : 1 + static_cast<int>(src.Below(512));
    if (!bStrict && src.OneIn(10)) {
        iLen = src.OneIn(2) ? 0 : 513;
    }
    lua_createtable(L, iLen, 0);
    uint32_t uiFill = src.Below(3);   /* all clear, all set, or mixed */
    for (int i = 1; i <= iLen; i++) {
        if (!bStrict && src.OneIn(64)) {
            PushAnyValue(L, src, 1);
        } else {
            lua_pushinteger(L, uiFill == 0 ? 0 : uiFill == 1 ? 255 : static_cast<lua_Integer>(src.Below(256)));
        }
        lua_rawseti(L, -2, i);
    }
    if (!bStrict && src.OneIn(8)) {
        Spoil(L, src, iLen);
    }
}

}  // namespace

uint32_t VlanFuzzPrng::Below(uint32_t uiBound)
{
    m_ulState += 0x9E3779B97F4A7C15ull;
    uint64_t z = m_ulState;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return uiBound == 0 ? 0 : static_cast<uint32_t>(z % uiBound);
}

uint32_t VlanFuzzBytes::Below(uint32_t uiBound)
{
    uint32_t uiValue = 0;
    for (uint32_t uiSpan = uiBound - 1; uiSpan != 0 && m_ulLeft != 0 && uiBound > 1; uiSpan >>= 8) {
        uiValue = (uiValue << 8) | *m_pucData++;
        m_ulLeft--;
    }
    return uiBound <= 1 ? 0 : uiValue % uiBound;
}

int VlanFuzz_PushArgs(lua_State *L, VlanFuzzSource &src, const char *pcTemplate, bool bStrict)
{
    int iWant = static_cast<int>(std::strlen(pcTemplate));
    int iCount = iWant;
    if (!bStrict && src.OneIn(10)) {
        iCount = static_cast<int>(src.Below(static_cast<uint32_t>(iWant) + 4));   /* too few or too many */
    }
    lua_checkstack(L, iCount + 8);
    for (int i = 0; i < iCount; i++) {
        if (i >= iWant || (!bStrict && src.OneIn(12))) {
            PushAnyValue(L, src, 0);
        } else {
            PushTyped(L, src, pcTemplate[i], bStrict);
        }
    }
    return iCount;
}
