/* Draws user-VLAN QinQ segments for a person to look at: PE along x, CE upwards, the plane scaled to
 * the segments' bounding box. A segment covers [begin, end + 1) on both axes, so neighbours touch
 * without overlapping. The plane's own rectangle carries the ranges it spans (data-pe, data-ce). */
#include <stdio.h>

#include <algorithm>

#include "vlanlua_cmd.h"

namespace {

constexpr double PLANE_X = 90;
constexpr double PLANE_Y = 50;
constexpr double PLANE_W = 720;
constexpr double PLANE_H = 720;
constexpr double LINE_H = 13;

/* Where the plane's edges are in VLAN IDs, and how many pixels one VLAN takes on each axis. */
struct Plane {
    uint32_t auiPe[2];
    uint32_t auiCe[2];
    double dSx;
    double dSy;
};

Plane PlaneFor(const std::vector<CmdSegment> &vecSegs)
{
    Plane stPlane{{1, 4094}, {1, 4094}, 0, 0};
    if (!vecSegs.empty()) {
        stPlane = Plane{{vecSegs[0].auiPe[0], vecSegs[0].auiPe[1]}, {vecSegs[0].auiCe[0], vecSegs[0].auiCe[1]}, 0, 0};
    }
    for (const CmdSegment &stSeg : vecSegs) {
        stPlane.auiPe[0] = std::min(stPlane.auiPe[0], stSeg.auiPe[0]);
        stPlane.auiPe[1] = std::max(stPlane.auiPe[1], stSeg.auiPe[1]);
        stPlane.auiCe[0] = std::min(stPlane.auiCe[0], stSeg.auiCe[0]);
        stPlane.auiCe[1] = std::max(stPlane.auiCe[1], stSeg.auiCe[1]);
    }
    stPlane.dSx = PLANE_W / (stPlane.auiPe[1] + 1.0 - stPlane.auiPe[0]);
    stPlane.dSy = PLANE_H / (stPlane.auiCe[1] + 1.0 - stPlane.auiCe[0]);
    return stPlane;
}

std::string Fmt(const char *pcFmt, double dA, double dB = 0, double dC = 0, double dD = 0)
{
    char acBuf[160];
    snprintf(acBuf, sizeof(acBuf), pcFmt, dA, dB, dC, dD);
    return acBuf;
}

std::string Escape(const std::string &strText)
{
    std::string strOut;
    for (char c : strText) {
        strOut += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '"' ? "&quot;" : std::string(1, c);
    }
    return strOut;
}

std::string Text(double dX, double dY, const char *pcAttrs, const std::string &strText)
{
    std::string strAttrs = pcAttrs[0] != '\0' ? std::string(" ") + pcAttrs : "";
    return Fmt("<text x=\"%.3f\" y=\"%.3f\"", dX, dY) + strAttrs + ">" + Escape(strText) + "</text>\n";
}

std::string Range(const uint32_t *puiRange)
{
    return std::to_string(puiRange[0]) + "-" + std::to_string(puiRange[1]);
}

/* Equal services get equal colours. */
const char *FillFor(const std::string &strServices)
{
    static const char *const apcPalette[] = {"#8dd3c7", "#ffffb3", "#bebada", "#fb8072",
                                             "#80b1d3", "#fdb462", "#b3de69", "#fccde5"};
    if (strServices == "none") {
        return "#dddddd";
    }
    uint32_t uiHash = 2166136261u;
    for (unsigned char c : strServices) {
        uiHash = (uiHash ^ c) * 16777619u;
    }
    return apcPalette[uiHash % (sizeof(apcPalette) / sizeof(apcPalette[0]))];
}

std::string DrawAxes(uint32_t uiIfIndex, const Plane &p)
{
    std::string strSvg = Fmt("<rect class=\"plane\" x=\"%.3f\" y=\"%.3f\" width=\"%.3f\" height=\"%.3f\" ", PLANE_X,
                             PLANE_Y, PLANE_W, PLANE_H);
    strSvg += "data-pe=\"" + Range(p.auiPe) + "\" data-ce=\"" + Range(p.auiCe) +
              "\" fill=\"#fafafa\" stroke=\"#333\"/>\n";
    strSvg += Text(PLANE_X, 28, "font-size=\"15\"", "interface " + std::to_string(uiIfIndex) +
                                                        ": user-VLAN QinQ segments");
    double dBottom = PLANE_Y + PLANE_H;
    strSvg += Text(PLANE_X, dBottom + 18, "", std::to_string(p.auiPe[0]));
    strSvg += Text(PLANE_X + PLANE_W, dBottom + 18, "text-anchor=\"end\"", std::to_string(p.auiPe[1]));
    strSvg += Text(PLANE_X + PLANE_W / 2, dBottom + 40, "text-anchor=\"middle\" font-size=\"15\"", "PE");
    strSvg += Text(PLANE_X - 6, dBottom, "text-anchor=\"end\"", std::to_string(p.auiCe[0]));
    strSvg += Text(PLANE_X - 6, PLANE_Y + LINE_H, "text-anchor=\"end\"", std::to_string(p.auiCe[1]));
    double dMidY = PLANE_Y + PLANE_H / 2;
    strSvg += Fmt("<text x=\"%.3f\" y=\"%.3f\" transform=\"rotate(-90 %.3f %.3f)\" ", PLANE_X - 40, dMidY,
                  PLANE_X - 40, dMidY) +
              "text-anchor=\"middle\" font-size=\"15\">CE</text>\n";
    return strSvg;
}

/* The rectangle with its title and, when it has room for them, its ranges and services inside. */
std::string DrawSegment(const CmdSegment &s, const Plane &p)
{
    double dX = PLANE_X + (s.auiPe[0] - p.auiPe[0]) * p.dSx;
    double dW = (s.auiPe[1] + 1.0 - s.auiPe[0]) * p.dSx;
    double dY = PLANE_Y + (p.auiCe[1] - s.auiCe[1]) * p.dSy;
    double dH = (s.auiCe[1] + 1.0 - s.auiCe[0]) * p.dSy;
    std::string strLabel = "PE " + Range(s.auiPe) + ", CE " + Range(s.auiCe);
    std::string strSvg = "<g class=\"segment\"><title>segment " + std::to_string(s.uiSegIndex) + ": " + strLabel +
                         ": " + Escape(s.strServices) + "</title>\n";
    strSvg += Fmt("<rect class=\"segment\" x=\"%.3f\" y=\"%.3f\" width=\"%.3f\" height=\"%.3f\" ", dX, dY, dW, dH);
    strSvg += std::string("fill=\"") + FillFor(s.strServices) + "\" stroke=\"#333\"/>\n";
    if (dW >= 70 && dH >= 3 * LINE_H + 6) {
        strSvg += Text(dX + 4, dY + LINE_H, "font-size=\"11\"", "PE " + Range(s.auiPe));
        strSvg += Text(dX + 4, dY + 2 * LINE_H, "font-size=\"11\"", "CE " + Range(s.auiCe));
        strSvg += Text(dX + 4, dY + 3 * LINE_H, "font-size=\"11\"", s.strServices);
    }
    return strSvg + "</g>\n";
}

}  // namespace

std::string Cmd_DrawSegments(uint32_t uiIfIndex, const std::vector<CmdSegment> &vecSegs)
{
    Plane stPlane = PlaneFor(vecSegs);
    std::string strSvg = Fmt("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                             "font-family=\"sans-serif\" font-size=\"12\">\n",
                             PLANE_X + PLANE_W + 30, PLANE_Y + PLANE_H + 60);
    strSvg += DrawAxes(uiIfIndex, stPlane);
    for (const CmdSegment &stSeg : vecSegs) {
        strSvg += DrawSegment(stSeg, stPlane);
    }
    return strSvg + "</svg>\n";
}
