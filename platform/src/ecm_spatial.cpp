/* Spatial indexes of rectangle tables: a companion rtree_i32 table <table>_rt holding, per row, one box
 * keyed by the row's rowid, kept in step by triggers. It only narrows a read: every condition is still
 * checked on the row itself, so its boxes need only contain what the conditions can accept.
 *
 * The rectangles of such a table belong to keys (interfaces), and a read asks for one key's. The key
 * is folded into both coordinates rather than made a dimension of its own: its low 15 bits sit above
 * the first range, its next 15 bits above the second. A dimension in which a key's boxes are all flat
 * would make the area of every box and node 0, and R*Tree's choice of where a box goes weighs areas:
 * the tree would then grow without order and a read of a few boxes would visit most of its nodes.
 * Keys that agree in those 30 bits share coordinates; their rows are told apart by the conditions.
 * A range is stored as min(low, high) to max(low, high), so a row whose ends are the wrong way round
 * still lies inside its box; coordinates are shifted down by 2^31 into the signed range. A read goes
 * through the boxes when it holds the key equal and, on a range, the overlap pattern low <= ? and
 * high >= ?. */
#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

const char *const SHIFT = " - 2147483648";  /* onto the signed 32-bit range */

const char *FieldName(const ECM_CTL_TABLE_S *pstTable, uint8_t ucFieldNo)
{
    return ECM_CTL_FindField(pstTable, ucFieldNo)->pcName;
}

/* What the key, read as strKey, adds to range d's coordinates. Built by appending to one string:
 * chains of operator+ over temporaries draw a false -Wrestrict from GCC 12. */
std::string KeyPart(uint32_t d, const std::string &strKey)
{
    std::string strSql = d == 0 ? "((" : "(((";
    return strSql.append(strKey).append(d == 0 ? " & 32767) << 16)" : " >> 15) & 32767) << 16)");
}

/* The box of a row as a list of expressions, its fields read through pcRow ("new." or ""). */
std::string BoxExprs(const EcmSpatialDef *pstDef, const ECM_CTL_TABLE_S *pstTable, const char *pcRow)
{
    std::string strKey = std::string(pcRow).append(FieldName(pstTable, pstDef->ucKey));
    std::string strSql;
    for (uint32_t d = 0; d < ECM_SPATIAL_RANGES; d++) {
        std::string strLow = std::string(pcRow).append(FieldName(pstTable, pstDef->aucLow[d]));
        std::string strHigh = std::string(pcRow).append(FieldName(pstTable, pstDef->aucHigh[d]));
        std::string strPart = KeyPart(d, strKey);
        strSql.append(", ").append(strPart).append(" + min(").append(strLow).append(", ").append(strHigh);
        strSql.append(")").append(SHIFT);
        strSql.append(", ").append(strPart).append(" + max(").append(strLow).append(", ").append(strHigh);
        strSql.append(")").append(SHIFT);
    }
    return strSql;
}

std::string Trigger(const char *pcTable, const char *pcSuffix, const char *pcEvent, const std::string &strBody)
{
    std::string strSql = "CREATE TRIGGER IF NOT EXISTS ";
    strSql.append(pcTable).append(pcSuffix).append(" AFTER ").append(pcEvent).append(" ON ").append(pcTable);
    return strSql.append(" BEGIN ").append(strBody).append(" END;");
}

/* The parameter of the condition on uiField with operator uiOp, 0 when there is none. */
uint32_t CondParam(const EcmSpatialShape &stShape, uint8_t ucFieldNo, uint32_t uiOp)
{
    for (uint32_t i = 0; i < stShape.uiCondNum; i++) {
        if (stShape.apstCond[i]->ucFieldNo == ucFieldNo && stShape.puiOp[i] == uiOp) {
            return i + 1;
        }
    }
    return 0;
}

}  // namespace

std::string Ecm_SpatialDropSql(const EcmSpatialDef *pstDef)
{
    std::string strTable = ECM_CTL_FindTable(pstDef->uiTableId)->pcName;
    std::string strSql;
    for (const char *pcSuffix : {"_rt_ins", "_rt_upd", "_rt_del"}) {
        strSql.append("DROP TRIGGER IF EXISTS ").append(strTable).append(pcSuffix).append(";");
    }
    return strSql.append("DROP TABLE IF EXISTS ").append(strTable).append("_rt;");
}

std::string Ecm_SpatialSchemaSql(const EcmSpatialDef *pstDef)
{
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(pstDef->uiTableId);
    const char *pcTable = pstTable->pcName;
    std::string strRt = std::string(pcTable).append("_rt");
    std::string strSql = "CREATE VIRTUAL TABLE IF NOT EXISTS ";
    strSql.append(strRt).append(" USING rtree_i32(id, lo0, hi0, lo1, hi1);");
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
    if (pstDef == nullptr || CondParam(stShape, pstDef->ucKey, ECM_OP_EQ) == 0) {
        return nullptr;
    }
    for (uint32_t d = 0; d < ECM_SPATIAL_RANGES; d++) {
        if (CondParam(stShape, pstDef->aucLow[d], ECM_OP_LE) != 0 && CondParam(stShape, pstDef->aucHigh[d], ECM_OP_GE) != 0) {
            return pstDef;
        }
    }
    return nullptr;
}

std::string Ecm_SpatialFrom(const EcmSpatialDef *pstDef, const EcmSpatialShape &stShape)
{
    const char *pcTable = stShape.pstTable->pcName;
    std::string strKey = std::string("?").append(std::to_string(CondParam(stShape, pstDef->ucKey, ECM_OP_EQ)));
    std::string strSql = " FROM ";
    strSql.append(pcTable).append("_rt CROSS JOIN ").append(pcTable);  /* boxes first, rows by rowid */
    strSql.append(" ON ").append(pcTable).append(".rowid = ").append(pcTable).append("_rt.id WHERE 1");
    for (uint32_t d = 0; d < ECM_SPATIAL_RANGES; d++) {
        std::string strDim = std::to_string(d);
        uint32_t uiLow = CondParam(stShape, pstDef->aucLow[d], ECM_OP_LE);    /* low <= ?: the box starts by then */
        uint32_t uiHigh = CondParam(stShape, pstDef->aucHigh[d], ECM_OP_GE);  /* high >= ?: it ends from then on */
        if (uiLow != 0) {
            strSql.append(" AND lo").append(strDim).append(" <= ").append(KeyPart(d, strKey)).append(" + ?");
            strSql.append(std::to_string(uiLow)).append(SHIFT);
        }
        if (uiHigh != 0) {
            strSql.append(" AND hi").append(strDim).append(" >= ").append(KeyPart(d, strKey)).append(" + ?");
            strSql.append(std::to_string(uiHigh)).append(SHIFT);
        }
    }
    return strSql;
}
