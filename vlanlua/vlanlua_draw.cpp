/* Draws an interface's rectangles for a person to read: user-VLAN QinQ segments and QinQ match
 * rectangles, each kind on a PE x CE plane of its own (PE along x, CE upwards). A row covers
 * [begin, end + 1) on both axes, so neighbours touch without overlapping; the axes run between
 * round VLAN steps that hold every row. A rectangle is never drawn smaller than MIN_SIZE, so a
 * one-VLAN row stays visible; its left and upper edges stay exact. Every rectangle carries its
 * number, ranges and legend entry (data-row, data-pe, data-ce, data-set), and every plane the
 * ranges it spans (data-pe, data-ce), so the drawing can be read back by a program too. A damaged
 * row, whose range runs backwards, is drawn over the VLANs between its two ends and marked
 * (class "row damaged", a red dashed border, data-damaged). */
#include <stdio.h>

#include <algorithm>
#include <map>

#include "vlanlua_cmd.h"

namespace {

constexpr double MARGIN_LEFT = 74;  /* CE tick labels and the CE axis title */
constexpr double PLANE_W = 600;
constexpr double PLANE_H = 400;
constexpr double TOP = 40;          /* the drawing's title */
constexpr double PANEL_TITLE = 26;
constexpr double PANEL_BELOW = 58;  /* PE tick labels, the PE axis title and a gap */
constexpr double SIDE_X = MARGIN_LEFT + PLANE_W + 36;
constexpr double SIDE_W = 310;
constexpr double MIN_SIZE = 5;
constexpr double CHAR_W = 6.6;      /* a generous width of one character of the 11-pixel labels */
constexpr double LINE_H = 13;

const CmdKind DRAWN_KINDS[] = {KIND_UVLAN_QINQ, KIND_QINQ_MATCH};

std::string Num(double dValue)
{
    char acBuf[32];
    snprintf(acBuf, sizeof(acBuf), "%.2f", dValue);
    return acBuf;
}

std::string Attr(const char *pcName, const std::string &strValue)
{
    return std::string(" ") + pcName + "=\"" + Cmd_Escape(strValue) + "\"";
}

std::string Text(double dX, double dY, const std::string &strAttrs, const std::string &strText)
{
    return "<text" + Attr("x", Num(dX)) + Attr("y", Num(dY)) + strAttrs + ">" + Cmd_Escape(strText) + "</text>\n";
}

std::string Span(uint64_t ulBegin, uint64_t ulEnd)
{
    return std::to_string(ulBegin) + "-" + std::to_string(ulEnd);
}

/* The VLANs a row spans on one axis, lowest first, whichever way its range runs. */
std::pair<uint64_t, uint64_t> SpanOf(const CmdRow &r, const char *pcBegin, const char *pcEnd)
{
    return std::minmax(r.Num(pcBegin), r.Num(pcEnd));
}

/* ---- Axes at round steps ---- */

/* An axis from ulLo to ulHi (both multiples of ulStep) over dPixels. */
struct Axis {
    uint64_t ulLo, ulHi, ulStep;
    double dPixels;
    double Pos(uint64_t ulVlan) const
    {
        return (static_cast<double>(ulVlan) - static_cast<double>(ulLo)) * dPixels / static_cast<double>(ulHi - ulLo);
    }
};

/* The smallest step of 1, 2 or 5 times a power of ten that cuts the span into at most 10 parts. */
uint64_t RoundStep(uint64_t ulSpan)
{
    for (uint64_t ulPower = 1;; ulPower *= 10) {
        for (uint64_t ulMul : {1, 2, 5}) {
            if (ulSpan <= 10 * ulMul * ulPower) {
                return ulMul * ulPower;
            }
        }
    }
}

/* The axis over [ulMin, ulEndPlus1) widened to the round steps around it. */
Axis AxisOver(uint64_t ulMin, uint64_t ulEndPlus1, double dPixels)
{
    uint64_t ulStep = RoundStep(ulEndPlus1 - ulMin);
    uint64_t ulLo = ulMin / ulStep * ulStep;
    uint64_t ulHi = (ulEndPlus1 + ulStep - 1) / ulStep * ulStep;
    return Axis{ulLo, ulHi, ulStep, dPixels};
}

struct Plane {
    CmdKind eKind;
    double dX, dY;      /* top left corner of the plane */
    Axis stPe, stCe;
};

Plane PlaneFor(CmdKind eKind, const std::vector<CmdRow> &vecRows, double dY)
{
    uint64_t aulMin[2] = {UINT64_MAX, UINT64_MAX};
    uint64_t aulEnd[2] = {0, 0};
    for (const CmdRow &r : vecRows) {
        auto pe = SpanOf(r, "pe_begin", "pe_end");
        auto ce = SpanOf(r, "ce_begin", "ce_end");
        aulMin[0] = std::min(aulMin[0], pe.first);
        aulMin[1] = std::min(aulMin[1], ce.first);
        aulEnd[0] = std::max(aulEnd[0], pe.second + 1);
        aulEnd[1] = std::max(aulEnd[1], ce.second + 1);
    }
    return Plane{eKind, MARGIN_LEFT, dY, AxisOver(aulMin[0], aulEnd[0], PLANE_W), AxisOver(aulMin[1], aulEnd[1], PLANE_H)};
}

std::string DrawAxes(const Plane &p)
{
    std::string strSvg = "<rect class=\"plane\"" + Attr("x", Num(p.dX)) + Attr("y", Num(p.dY)) +
                         Attr("width", Num(PLANE_W)) + Attr("height", Num(PLANE_H)) +
                         Attr("data-pe", Span(p.stPe.ulLo, p.stPe.ulHi - 1)) +
                         Attr("data-ce", Span(p.stCe.ulLo, p.stCe.ulHi - 1)) + " fill=\"#fbfbfb\" stroke=\"#444\"/>\n";
    double dBottom = p.dY + PLANE_H;
    for (uint64_t v = p.stPe.ulLo; v <= p.stPe.ulHi; v += p.stPe.ulStep) {
        double dX = p.dX + p.stPe.Pos(v);
        strSvg += "<line class=\"grid\"" + Attr("x1", Num(dX)) + Attr("y1", Num(p.dY)) + Attr("x2", Num(dX)) +
                  Attr("y2", Num(dBottom + 4)) + " stroke=\"#ddd\"/>\n";
        strSvg += Text(dX, dBottom + 17, " text-anchor=\"middle\"", std::to_string(v));
    }
    for (uint64_t v = p.stCe.ulLo; v <= p.stCe.ulHi; v += p.stCe.ulStep) {
        double dY = dBottom - p.stCe.Pos(v);
        strSvg += "<line class=\"grid\"" + Attr("x1", Num(p.dX - 4)) + Attr("y1", Num(dY)) + Attr("x2", Num(p.dX + PLANE_W)) +
                  Attr("y2", Num(dY)) + " stroke=\"#ddd\"/>\n";
        strSvg += Text(p.dX - 7, dY + 4, " text-anchor=\"end\"", std::to_string(v));
    }
    strSvg += Text(p.dX + PLANE_W / 2, dBottom + 36, " text-anchor=\"middle\" font-weight=\"bold\"", "PE VLAN");
    double dMidY = p.dY + PLANE_H / 2;
    strSvg += Text(18, dMidY, " text-anchor=\"middle\" font-weight=\"bold\" transform=\"rotate(-90 18 " + Num(dMidY) + ")\"",
                   "CE VLAN");
    return strSvg;
}

/* ---- Colours: one per legend entry, never two alike ---- */

std::string ColourAt(size_t ulIndex)
{
    static const char *const apcPalette[] = {"#8dd3c7", "#ffffb3", "#bebada", "#fb8072", "#80b1d3", "#fdb462",
                                             "#b3de69", "#fccde5", "#bc80bd", "#ccebc5", "#ffed6f", "#9ecae1"};
    constexpr size_t PALETTE = sizeof(apcPalette) / sizeof(apcPalette[0]);
    if (ulIndex < PALETTE) {
        return apcPalette[ulIndex];
    }
    /* Past the palette, hues 47 degrees apart; the round (n / 360) in the thousandths keeps every
     * colour's text, and so every entry's colour, its own. */
    size_t n = ulIndex - PALETTE;
    char acBuf[48];
    snprintf(acBuf, sizeof(acBuf), "hsl(%.3f,60%%,%d%%)", static_cast<double>(n * 47 % 360) + (n / 360) * 0.001,
             n % 2 == 0 ? 72 : 82);
    return acBuf;
}

constexpr const char *NO_SERVICES_FILL = "#e3e3e3";

struct Legend {
    std::vector<CmdLegendEntry> vecEntries;
    std::map<std::string, size_t> mapIndex;
    size_t IndexOf(const CmdRow &r) const { return mapIndex.at(Cmd_LegendLabel(r)); }
};

Legend LegendFor(const CmdIfConfig &stConfig)
{
    Legend stLegend;
    size_t ulColours = 0;
    for (CmdKind eKind : DRAWN_KINDS) {
        for (const CmdRow &r : stConfig.avecRows[eKind]) {
            std::string strLabel = Cmd_LegendLabel(r);
            if (stLegend.mapIndex.count(strLabel) == 0) {
                stLegend.mapIndex[strLabel] = stLegend.vecEntries.size();
                bool bNone = eKind == KIND_UVLAN_QINQ && r.strServices.empty();
                stLegend.vecEntries.push_back({strLabel, bNone ? NO_SERVICES_FILL : ColourAt(ulColours++)});
            }
        }
    }
    return stLegend;
}

/* ---- Rectangles and their labels ---- */

struct Box {
    double dX, dY, dW, dH;
};

Box BoxOf(const CmdRow &r, const Plane &p)
{
    auto pe = SpanOf(r, "pe_begin", "pe_end");
    auto ce = SpanOf(r, "ce_begin", "ce_end");
    double dX = p.dX + p.stPe.Pos(pe.first);
    double dRight = p.dX + p.stPe.Pos(pe.second + 1);
    double dTop = p.dY + PLANE_H - p.stCe.Pos(ce.second + 1);
    double dBottom = p.dY + PLANE_H - p.stCe.Pos(ce.first);
    return Box{dX, dTop, std::max(dRight - dX, MIN_SIZE), std::max(dBottom - dTop, MIN_SIZE)};
}

/* Words joined into lines of at most ulChars characters (a longer word stands alone). */
std::vector<std::string> Wrap(const std::string &strText, size_t ulChars)
{
    std::vector<std::string> vecLines;
    size_t ulAt = 0;
    while (ulAt < strText.size()) {
        size_t ulEnd = strText.find(' ', ulAt);
        std::string strWord = strText.substr(ulAt, ulEnd == std::string::npos ? std::string::npos : ulEnd - ulAt);
        if (!vecLines.empty() && vecLines.back().size() + 1 + strWord.size() <= ulChars) {
            vecLines.back() += " " + strWord;
        } else {
            vecLines.push_back(strWord);
        }
        ulAt = ulEnd == std::string::npos ? strText.size() : ulEnd + 1;
    }
    return vecLines;
}

bool Fits(const std::vector<std::string> &vecLines, const Box &b)
{
    size_t ulLongest = 0;
    for (const std::string &strLine : vecLines) {
        ulLongest = std::max(ulLongest, strLine.size());
    }
    return static_cast<double>(ulLongest) * CHAR_W + 8 <= b.dW && static_cast<double>(vecLines.size()) * LINE_H + 6 <= b.dH;
}

/* The fullest label that fits inside the box: number and ranges with the legend entry, or number
 * and ranges alone (the colour tells the rest), each on three lines or stacked narrower on four;
 * empty when none fits. */
std::vector<std::string> LabelFor(const CmdRow &r, const Box &b)
{
    std::string strNo = Cmd_RowNo(r);
    std::string strPe = "PE " + Cmd_Range(r.Num("pe_begin"), r.Num("pe_end"));
    std::string strCe = "CE " + Cmd_Range(r.Num("ce_begin"), r.Num("ce_end"));
    size_t ulChars = b.dW > 8 ? static_cast<size_t>((b.dW - 8) / CHAR_W) : 1;
    std::vector<std::string> vecLegend = Wrap(Cmd_LegendLabel(r), std::max<size_t>(ulChars, 1));
    const std::vector<std::string> avecTries[] = {{strNo + "  " + strPe, strCe}, {strNo, strPe, strCe}};
    for (bool bWithLegend : {true, false}) {
        for (std::vector<std::string> vecLines : avecTries) {
            if (bWithLegend) {
                vecLines.insert(vecLines.end(), vecLegend.begin(), vecLegend.end());
            }
            if (Fits(vecLines, b)) {
                return vecLines;
            }
        }
    }
    return {};
}

const char *const LABEL_STYLE = " font-size=\"11\" pointer-events=\"none\"";

/* The number of an unlabelled rectangle: inside when it fits, else just right of it on a halo. */
std::string NumberMark(const CmdRow &r, const Box &b)
{
    std::string strNo = Cmd_RowNo(r);
    if (Fits({strNo}, b)) {
        return Text(b.dX + 3, b.dY + LINE_H, LABEL_STYLE, strNo);
    }
    return Text(b.dX + b.dW + 2, b.dY + b.dH / 2 + 4,
                std::string(LABEL_STYLE) + " stroke=\"#fff\" stroke-width=\"3\" paint-order=\"stroke\"", strNo);
}

std::string RowRect(const CmdRow &r, const Box &b, const Legend &stLegend)
{
    size_t ulSet = stLegend.IndexOf(r);
    std::string strPe = Span(r.Num("pe_begin"), r.Num("pe_end"));
    std::string strCe = Span(r.Num("ce_begin"), r.Num("ce_end"));
    bool bDamaged = Cmd_RowBackwards(r);
    std::string strMark = bDamaged ? " data-damaged=\"backwards\" stroke=\"#d00\" stroke-width=\"2\" stroke-dasharray=\"4 2\""
                                   : " stroke=\"#333\"";
    return std::string("<rect class=\"row") + (bDamaged ? " damaged\"" : "\"") + Attr("data-row", std::to_string(r.uiNo)) + Attr("data-kind", Cmd_KindInfo(r.eKind).pcShort) +
           Attr("data-set", std::to_string(ulSet)) + Attr("data-pe", strPe) + Attr("data-ce", strCe) + Attr("x", Num(b.dX)) +
           Attr("y", Num(b.dY)) + Attr("width", Num(b.dW)) + Attr("height", Num(b.dH)) +
           Attr("fill", stLegend.vecEntries[ulSet].strFill) + strMark + "><title>" +
           Cmd_Escape(Cmd_RowNo(r) + " " + Cmd_RowText(r)) + "</title></rect>\n";
}

/* The plane's rectangles, larger ones first so that small ones lie on top, then their labels;
 * rows left without a label go to the key. */
std::string DrawRows(const Plane &p, const std::vector<CmdRow> &vecRows, const Legend &stLegend,
                     std::vector<const CmdRow *> *pvecKey)
{
    std::vector<const CmdRow *> vecOrder;
    for (const CmdRow &r : vecRows) {
        vecOrder.push_back(&r);
    }
    std::stable_sort(vecOrder.begin(), vecOrder.end(), [&p](const CmdRow *a, const CmdRow *b) {
        Box ba = BoxOf(*a, p);
        Box bb = BoxOf(*b, p);
        return ba.dW * ba.dH > bb.dW * bb.dH;
    });
    std::string strRects = "<g class=\"rows\">\n";
    std::string strLabels = "<g class=\"labels\">\n";
    for (const CmdRow *pstRow : vecOrder) {
        Box b = BoxOf(*pstRow, p);
        strRects += RowRect(*pstRow, b, stLegend);
        std::vector<std::string> vecLines = LabelFor(*pstRow, b);
        for (size_t i = 0; i < vecLines.size(); i++) {
            strLabels += Text(b.dX + 4, b.dY + LINE_H * static_cast<double>(i + 1), LABEL_STYLE, vecLines[i]);
        }
        if (vecLines.empty()) {
            pvecKey->push_back(pstRow);
            strLabels += NumberMark(*pstRow, b);
        }
    }
    return strRects + "</g>\n" + strLabels + "</g>\n";
}

std::string PanelTitle(CmdKind eKind)
{
    return eKind == KIND_UVLAN_QINQ ? "user-VLAN QinQ segments, coloured by their services"
                                    : "QinQ match rectangles, coloured by their match group";
}

/* ---- Legend and key beside the planes ---- */

std::string DrawLegend(const Legend &stLegend, double *pdY)
{
    std::string strSvg = "<g class=\"legend\">\n" + Text(SIDE_X, *pdY, " font-weight=\"bold\"", "colours");
    *pdY += 10;
    for (size_t i = 0; i < stLegend.vecEntries.size(); i++) {
        const CmdLegendEntry &e = stLegend.vecEntries[i];
        strSvg += "<g class=\"legend-entry\"" + Attr("data-set", std::to_string(i)) + "><rect" + Attr("x", Num(SIDE_X)) +
                  Attr("y", Num(*pdY)) + " width=\"16\" height=\"14\"" + Attr("fill", e.strFill) + " stroke=\"#333\"/>\n";
        for (const std::string &strLine : Wrap(e.strLabel, 40)) {
            strSvg += Text(SIDE_X + 24, *pdY + 11, "", strLine);
            *pdY += LINE_H + 2;
        }
        strSvg += "</g>\n";
        *pdY += 5;
    }
    return strSvg + "</g>\n";
}

std::string DrawKey(const std::vector<const CmdRow *> &vecKey, double *pdY)
{
    if (vecKey.empty()) {
        return "";
    }
    *pdY += 16;
    std::string strSvg = "<g class=\"key\">\n" + Text(SIDE_X, *pdY, " font-weight=\"bold\"", "rectangles too small for their label");
    *pdY += 6;
    std::vector<const CmdRow *> vecSorted = vecKey;
    std::sort(vecSorted.begin(), vecSorted.end(), [](const CmdRow *a, const CmdRow *b) { return a->uiNo < b->uiNo; });
    for (const CmdRow *r : vecSorted) {
        std::string strEntry = Cmd_RowNo(*r) + "  PE " + Cmd_Range(r->Num("pe_begin"), r->Num("pe_end")) +
                               ", CE " + Cmd_Range(r->Num("ce_begin"), r->Num("ce_end")) + ": " + Cmd_LegendLabel(*r);
        for (const std::string &strLine : Wrap(strEntry, 46)) {
            *pdY += LINE_H + 1;
            strSvg += Text(SIDE_X, *pdY, "", strLine);
        }
    }
    return strSvg + "</g>\n";
}

}  // namespace

std::string Cmd_Escape(const std::string &strText)
{
    std::string strOut;
    for (char c : strText) {
        strOut += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '"' ? "&quot;" : std::string(1, c);
    }
    return strOut;
}

std::string Cmd_LegendLabel(const CmdRow &stRow)
{
    if (stRow.eKind == KIND_QINQ_MATCH) {
        return "match group " + std::to_string(stRow.Num("group_id"));
    }
    return stRow.strServices.empty() ? "no services" : stRow.strServices;
}

CmdDrawing Cmd_Draw(const CmdIfConfig &stConfig, bool bStandalone)
{
    Legend stLegend = LegendFor(stConfig);
    std::string strBody = Text(MARGIN_LEFT, 26, " font-size=\"17\" font-weight=\"bold\"",
                               "interface " + std::to_string(stConfig.uiIfIndex));
    double dY = TOP;
    std::vector<const CmdRow *> vecKey;
    for (CmdKind eKind : DRAWN_KINDS) {
        const std::vector<CmdRow> &vecRows = stConfig.avecRows[eKind];
        if (vecRows.empty()) {
            continue;
        }
        Plane stPlane = PlaneFor(eKind, vecRows, dY + PANEL_TITLE);
        strBody += "<g class=\"panel\"" + Attr("data-kind", Cmd_KindInfo(eKind).pcShort) + ">\n" +
                   Text(MARGIN_LEFT, dY + 16, " font-size=\"14\"", PanelTitle(eKind)) + DrawAxes(stPlane) +
                   DrawRows(stPlane, vecRows, stLegend, &vecKey) + "</g>\n";
        dY += PANEL_TITLE + PLANE_H + PANEL_BELOW;
    }
    if (dY == TOP) {
        strBody += Text(MARGIN_LEFT, TOP + 20, "", "no user-VLAN QinQ segments and no QinQ match rectangles");
        dY += 40;
    }
    double dSideY = TOP + 16;
    if (bStandalone) {
        strBody += DrawLegend(stLegend, &dSideY);
        strBody += DrawKey(vecKey, &dSideY);   /* below the legend: the two statements keep that order */
    }
    double dWidth = bStandalone ? SIDE_X + SIDE_W : SIDE_X;
    double dHeight = std::max(dY, dSideY + 20);
    std::string strHead = std::string("<svg") + (bStandalone ? " xmlns=\"http://www.w3.org/2000/svg\"" : "") +
                          Attr("width", Num(dWidth)) + Attr("height", Num(dHeight)) +
                          Attr("viewBox", "0 0 " + Num(dWidth) + " " + Num(dHeight)) +
                          " font-family=\"sans-serif\" font-size=\"12\">\n";
    return CmdDrawing{stLegend.vecEntries, strHead + strBody + "</svg>\n"};
}
