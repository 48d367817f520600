/* Spatial indexes of range tables: a companion rtree_i32 table <table>_rt holding, per row, one box
 * keyed by the row's rowid, kept in step by triggers. It only narrows a read: every condition is still
 * checked on the row itself, so its boxes need only contain what the conditions can accept.
 *
 * A dimension is a pair of fields (low end, high end), or one field twice for a single value. A box
 * stores min(low, high) and max(low, high), so a row whose ends are given the wrong way round still
 * lies inside its box; coordinates are the unsigned values shifted down by 2^31 into the signed
 * 32-bit range of the module. A read goes through the box when its conditions hold the overlap pattern
 * on a pair: low <= ? and high >= ?. */
#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

const char *const SHIFT = " - 2147483648";  /* unsigned 32 bits onto the signed range */

const char *FieldName(const ECM_CTL_TABLE_S *pstTable, uint8_t ucFieldNo)
{
    return ECM_CTL_FindField(pstTable, ucFieldNo)->pcName;
}

/* The box of a row as a list of expressions, its fields read through pcRow ("new." or ""). */
std::string BoxExprs(const EcmSpatialDef *pstDef, const ECM_CTL_TABLE_S *pstTable, const char *pcRow)
{
    std::string strSql;
    for (uint32_t d = 0; d < pstDef->ucDims; d++) {
        std::string strLow = std::string(pcRow).append(FieldName(pstTable, pstDef->aucLow[d]));
        std::string strHigh = std::string(pcRow).append(FieldName(pstTable, pstDef->aucHigh[d]));
        if (pstDef->aucLow[d] == pstDef->aucHigh[d]) {
            strSql.append(", ").append(strLow).append(SHIFT).append(", ").append(strLow).append(SHIFT);
            continue;
        }
        strSql.append(", min(").append(strLow).append(", ").append(strHigh).append(")").append(SHIFT);
        strSql.append(", max(").append(strLow).append(", ").append(strHigh).append(")").append(SHIFT);
    }
    return strSql;
}

std::string Trigger(const char *pcTable, const char *pcSuffix, const char *pcEvent, const std::string &strBody)
{
    std::string strSql = "CREATE TRIGGER IF NOT EXISTS ";
    strSql.append(pcTable).append(pcSuffix).append(" AFTER ").append(pcEvent).append(" ON ").append(pcTable);
    return strSql.append(" BEGIN ").append(strBody).append(" END;");
}

/* Where condition uiCond can narrow the boxes: "lo<d> <= ?n", "hi<d> >= ?n", both for an equality
 * on a single-value dimension, or "" when it cannot. */
std::string BoxConstraint(const EcmSpatialDef *pstDef, uint8_t ucFieldNo, uint32_t uiOp, uint32_t uiParam)
{
    std::string strParam = std::string(" ?").append(std::to_string(uiParam)).append(SHIFT);
    std::string strSql;
    for (uint32_t d = 0; d < pstDef->ucDims; d++) {
        bool bLow = pstDef->aucLow[d] == ucFieldNo;
        bool bHigh = pstDef->aucHigh[d] == ucFieldNo;
        bool bSingle = bLow && bHigh;
        std::string strDim = std::to_string(d);
        if (bLow && (uiOp == ECM_OP_LE || (bSingle && uiOp == ECM_OP_EQ))) {
            strSql.append(" AND lo").append(strDim).append(" <=").append(strParam);
        }
        if (bHigh && (uiOp == ECM_OP_GE || (bSingle && uiOp == ECM_OP_EQ))) {
            strSql.append(" AND hi").append(strDim).append(" >=").append(strParam);
        }
    }
    return strSql;
}

bool HasCond(const EcmSpatialShape &stShape, uint8_t ucFieldNo, uint32_t uiOp)
{
    for (uint32_t i = 0; i < stShape.uiCondNum; i++) {
        if (stShape.apstCond[i]->ucFieldNo == ucFieldNo && stShape.puiOp[i] == uiOp) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string Ecm_SpatialSchemaSql(const EcmSpatialDef *pstDef)
{
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(pstDef->uiTableId);
    const char *pcTable = pstTable->pcName;
    std::string strRt = std::string(pcTable).append("_rt");
    std::string strSql = "CREATE VIRTUAL TABLE IF NOT EXISTS ";
    strSql.append(strRt).append(" USING rtree_i32(id");
    for (uint32_t d = 0; d < pstDef->ucDims; d++) {
        strSql.append(", lo").append(std::to_string(d)).append(", hi").append(std::to_string(d));
    }
    strSql.append(");");
    std::string strInsert = std::string("INSERT INTO ").append(strRt).append(" VALUES(new.rowid");
    strInsert.append(BoxExprs(pstDef, pstTable, "new.")).append(");");
    std::string strDelete = std::string("DELETE FROM ").append(strRt).append(" WHERE id = old.rowid;");
    strSql.append(Trigger(pcTable, "_rt_ins", "INSERT", strInsert));
    strSql.append(Trigger(pcTable, "_rt_upd", "UPDATE", strDelete + strInsert));
    strSql.append(Trigger(pcTable, "_rt_del", "DELETE", strDelete));
    /* A file written before the index existed: fill it once from the rows. */
    strSql.append("INSERT INTO ").append(strRt).append(" SELECT rowid").append(BoxExprs(pstDef, pstTable, ""));
    strSql.append(" FROM ").append(pcTable).append(" WHERE NOT EXISTS (SELECT 1 FROM ").append(strRt);
    return strSql.append(");");
}

const EcmSpatialDef *Ecm_SpatialFits(const EcmSpatialShape &stShape)
{
    const EcmSpatialDef *pstDef = Ecm_SpatialOf(stShape.pstTable->uiTableId);
    for (uint32_t d = 0; pstDef != nullptr && d < pstDef->ucDims; d++) {
        if (pstDef->aucLow[d] != pstDef->aucHigh[d] && HasCond(stShape, pstDef->aucLow[d], ECM_OP_LE) &&
            HasCond(stShape, pstDef->aucHigh[d], ECM_OP_GE)) {
            return pstDef;
        }
    }
    return nullptr;
}

std::string Ecm_SpatialFrom(const EcmSpatialDef *pstDef, const EcmSpatialShape &stShape)
{
    const char *pcTable = stShape.pstTable->pcName;
    std::string strSql = " FROM ";
    strSql.append(pcTable).append("_rt CROSS JOIN ").append(pcTable);  /* boxes first, rows by rowid */
    strSql.append(" ON ").append(pcTable).append(".rowid = ").append(pcTable).append("_rt.id WHERE 1");
    for (uint32_t i = 0; i < stShape.uiCondNum; i++) {
        strSql.append(BoxConstraint(pstDef, stShape.apstCond[i]->ucFieldNo, stShape.puiOp[i], i + 1));
    }
    return strSql;
}
