/* Record sets and field-value lists named by the typed fields of vlanlua_tables.h: a selection
 * takes its width from the field, a condition's value and a written value must have exactly their
 * field's width (checked when compiling), and the type code of a write comes from the field.
 *
 * A condition that cannot be added (the condition block is full) is never dropped in silence: the
 * query keeps the failure, and its read, count or existence test fails without asking the
 * database; a field-value list that overflows refuses its write the same way. So no read and no
 * write runs with fewer conditions or fields than its code names. Uses only the platform's names. */
#ifndef VLANLUA_BAS_QUERY_H
#define VLANLUA_BAS_QUERY_H

#include <cstddef>
#include <type_traits>

#include "bas/vlanlua_bas_mem.h"
#include "vlanlua_db.h"
#include "vlanlua_tables.h"

/* ---- on a bare record set (operations that hand record sets around) ---- */

template <class... Fields>
void VlanLua_Select(VLANLUA_RECORDSET_S *pstRs)
{
    (VLANLUA_RecordSet_SelectField(pstRs, Fields::ucFieldNo, Fields::usWidth), ...);
}

/* Selects the fields of a record read back as Rec, which they must fill exactly. */
template <class Rec, class... Fields>
void VlanLua_SelectRecord(VLANLUA_RECORDSET_S *pstRs)
{
    static_assert((0 + ... + Fields::usWidth) == sizeof(Rec), "the selected fields make up the record");
    VlanLua_Select<Fields...>(pstRs);
}

/* Adds a condition; not 0 when it could not be added, and the caller then must not query. */
template <class Field, class Value>
[[nodiscard]] uint32_t VlanLua_Where(VLANLUA_RECORDSET_S *pstRs, uint32_t uiOp, Value value)
{
    static_assert(std::is_integral_v<Value> && sizeof(Value) == Field::usWidth,
                  "a condition's value has its field's width");
    return VLANLUA_RecordSet_Where(pstRs, uiOp, Field::ucFieldNo, &value, sizeof(value));
}

/* A u32 condition on a field named at run time; not 0 when the table has no u32 field of that
 * number or the condition could not be added. */
[[nodiscard]] inline uint32_t VlanLua_WhereU32(VLANLUA_RECORDSET_S *pstRs, uint32_t uiOp, uint8_t ucField,
                                               uint32_t uiValue)
{
    if (VlanLuaTbl::FieldWidth(pstRs->uiTableId, ucField) != sizeof(uiValue)) {
        return 1;
    }
    return VLANLUA_RecordSet_Where(pstRs, uiOp, ucField, &uiValue, sizeof(uiValue));
}

/* A query on table Table: owns its record set (deleted when the scope ends unless released) and
 * the failure of any condition added to it. */
template <class Table>
class VlanLuaQuery {
public:
    explicit VlanLuaQuery(void *pObj) : m_pObj(pObj), m_pstRs(VLANLUA_RecordSet_New(pObj, Table::uiId)) {}
    ~VlanLuaQuery() { VLANLUA_RecordSet_Delete(m_pstRs); }
    VlanLuaQuery(const VlanLuaQuery &) = delete;
    VlanLuaQuery &operator=(const VlanLuaQuery &) = delete;

    /* Whether the record set exists (the allocation may fail). */
    bool Made() const { return m_pstRs != nullptr; }
    VLANLUA_RECORDSET_S *Get() const { return m_pstRs; }
    /* Hands the record set (and its result buffer) to the caller. */
    VLANLUA_RECORDSET_S *Release()
    {
        VLANLUA_RECORDSET_S *pstRs = m_pstRs;
        m_pstRs = nullptr;
        return pstRs;
    }

    template <class... Fields>
    void Select()
    {
        (CheckTable<Fields>(), ...);
        VlanLua_Select<Fields...>(m_pstRs);
    }
    /* A selection wider or narrower than the field: the database cuts or pads the value. */
    template <class Field>
    void SelectWidth(uint16_t usWidth)
    {
        CheckTable<Field>();
        VLANLUA_RecordSet_SelectField(m_pstRs, Field::ucFieldNo, usWidth);
    }
    /* Selects the fields of a record read back as Rec, which they must fill exactly. */
    template <class Rec, class... Fields>
    void SelectRecord()
    {
        (CheckTable<Fields>(), ...);
        VlanLua_SelectRecord<Rec, Fields...>(m_pstRs);
    }

    template <class Field, class Value>
    void Where(uint32_t uiOp, Value value)
    {
        CheckTable<Field>();
        m_uiFailed |= VlanLua_Where<Field>(m_pstRs, uiOp, value);
    }
    /* A selection of a field named at run time, at its width; a field the table lacks fails the query. */
    void SelectField(uint8_t ucField)
    {
        uint16_t usWidth = VlanLuaTbl::FieldsByNo<Table::uiId>::Of(ucField).usWidth;
        m_uiFailed |= usWidth == 0 ? 1u : 0u;
        VLANLUA_RecordSet_SelectField(m_pstRs, ucField, usWidth);
    }

    template <class... Fields>
    void SortBy()
    {
        (CheckTable<Fields>(), ...);
        (VLANLUA_RecordSet_SortField(m_pstRs, Fields::ucFieldNo), ...);
    }

    /* The read with the selected fields' record length; 1 without asking when a condition failed. */
    uint32_t Query(uint16_t usRecNum) { return m_uiFailed != 0 ? 1 : VLANLUA_RecordSet_QueryFld(m_pstRs, usRecNum); }
    uint32_t Count(uint32_t *puiCount)
    {
        return m_uiFailed != 0 ? 1
                               : ECM_CAPI_QueryCount(m_pObj, Table::uiId, m_pstRs->pstWhere, VLANLUA_QUERY_MODE,
                                                     puiCount);
    }
    uint32_t Exist(uint32_t *puiExist)
    {
        return m_uiFailed != 0 ? 1
                               : ECM_CAPI_QueryExist(m_pObj, Table::uiId, m_pstRs->pstWhere, VLANLUA_QUERY_MODE,
                                                     puiExist);
    }

private:
    template <class Field>
    static constexpr void CheckTable()
    {
        static_assert(Field::uiTableId == Table::uiId, "a field of the query's own table");
    }

    void *m_pObj;
    VLANLUA_RECORDSET_S *m_pstRs;
    uint32_t m_uiFailed = 0;
};

/* The field-value list of one write to table Table, on the caller's stack; the values it points
 * to must outlive the write. */
template <class Table, uint32_t Capacity = 16>
class VlanLuaWriteList {
public:
    template <class Field, class Value>
    void Add(const Value *pValue)
    {
        static_assert(sizeof(Value) == Field::usWidth, "a written value has its field's width");
        AddBytes<Field>(pValue);
    }
    /* A value inside a packed record, whose layout assertions give it the field's width. */
    template <class Field>
    void AddBytes(const void *pValue)
    {
        static_assert(Field::uiTableId == Table::uiId, "a field of the write's own table");
        if (m_uiNum == Capacity) {
            m_bRefused = true;
            return;
        }
        m_astFields[m_uiNum++] = VLANLUA_FIELDVAL_S{Field::uiTypeCode, Field::ucFieldNo, Field::usWidth, pValue};
    }

    /* A u32 value of a field named at run time; a field of another width refuses the write. */
    void AddField(uint8_t ucField, const uint32_t *puiValue)
    {
        const VlanLuaTbl::FieldEntry &stField = VlanLuaTbl::FieldsByNo<Table::uiId>::Of(ucField);
        if (stField.usWidth != sizeof(*puiValue) || m_uiNum == Capacity) {   /* width 0: no such field */
            m_bRefused = true;
            return;
        }
        m_astFields[m_uiNum++] = VLANLUA_FIELDVAL_S{stField.uiTypeCode, ucField, stField.usWidth, puiValue};
    }

    uint32_t Insert(void *pObj, uint32_t uiFlag) const { return Run(ECM_CAPI_InsertRecord, pObj, uiFlag); }
    uint32_t Set(void *pObj, uint32_t uiFlag) const { return Run(ECM_CAPI_SetRecord, pObj, uiFlag); }
    uint32_t Delete(void *pObj, uint32_t uiFlag) const { return Run(ECM_CAPI_DeleteRecord, pObj, uiFlag); }

private:
    using WriteFn = uint32_t (*)(void *, uint32_t, const ECM_FIELDVAL_S *, uint32_t, uint32_t);
    uint32_t Run(WriteFn pfWrite, void *pObj, uint32_t uiFlag) const
    {
        if (m_bRefused) {
            return 1;                                   /* never a write with other fields than named */
        }
        return pfWrite(pObj, Table::uiId, reinterpret_cast<const ECM_FIELDVAL_S *>(m_astFields), m_uiNum, uiFlag);
    }

    VLANLUA_FIELDVAL_S m_astFields[Capacity];
    uint32_t m_uiNum = 0;
    bool m_bRefused = false;
};

#endif
