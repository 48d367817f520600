/* Random argument lists for the script functions, pushed onto a Lua stack: values of the kind each
 * argument wants (edges included) mixed with values of every other kind, tables of every length
 * with holes, nesting and string keys, and lists too short or too long. The choices come from a
 * source of numbers, seeded (the long runs) or read from a fuzzer's input (the libFuzzer targets).
 * Uses only Lua C API functions that every engine has. */
#ifndef VLANLUA_FUZZ_ARGS_H
#define VLANLUA_FUZZ_ARGS_H

#include <cstddef>
#include <cstdint>

extern "C" {
#include <lua.h>
}

/* Where the generator's choices come from. */
class VlanFuzzSource {
public:
    virtual ~VlanFuzzSource() = default;
    /* A number in 0 .. uiBound - 1 (0 when uiBound is 0). */
    virtual uint32_t Below(uint32_t uiBound) = 0;
    /* False once a finite source has nothing left; its Below then answers 0. */
    virtual bool More() const { return true; }
    bool OneIn(uint32_t uiN) { return Below(uiN) == 0; }
    uint64_t Wide() { return (static_cast<uint64_t>(Below(0xFFFFFFFFu)) << 32) | Below(0xFFFFFFFFu); }
};

/* splitmix64: small, fast, and the same sequence for the same seed on every machine. */
class VlanFuzzPrng : public VlanFuzzSource {
public:
    explicit VlanFuzzPrng(uint64_t ulSeed) : m_ulState(ulSeed) {}
    uint32_t Below(uint32_t uiBound) override;

private:
    uint64_t m_ulState;
};

/* Reads the choices from a byte string, one to four bytes each, as wide as the bound needs. */
class VlanFuzzBytes : public VlanFuzzSource {
public:
    VlanFuzzBytes(const uint8_t *pucData, size_t ulSize) : m_pucData(pucData), m_ulLeft(ulSize) {}
    uint32_t Below(uint32_t uiBound) override;
    bool More() const override { return m_ulLeft != 0; }

private:
    const uint8_t *m_pucData;
    size_t m_ulLeft;
};

/* Pushes an argument list for a function whose arguments are described by pcTemplate, one letter
 * per argument (see the .cpp); returns the number of values pushed. With bStrict the list has
 * the template's length and every value its kind (edges included), as the libFuzzer target over
 * one function wants; otherwise kinds, lengths and counts go wrong now and then. */
int VlanFuzz_PushArgs(lua_State *L, VlanFuzzSource &src, const char *pcTemplate, bool bStrict);

#endif
