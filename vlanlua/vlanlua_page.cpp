/* --html: one page that needs nothing but itself (its security policy forbids loading anything):
 * the interface's drawing, its legend and the table of every row. Pointing at a rectangle marks
 * its row and the other way round (both carry the row's number in data-row); the wheel zooms the
 * drawing about the pointer, dragging pans it, a double click shows all of it again. */
#include "vlanlua_cmd.h"

namespace {

const char *const PAGE_STYLE = R"(
body{font-family:sans-serif;margin:16px;color:#222}
h1{font-size:20px;margin:0 0 4px} h2{font-size:16px;margin:16px 0 6px}
.help{color:#555;margin:0 0 12px}
.layout{display:flex;gap:24px;align-items:flex-start;flex-wrap:wrap}
#drawing{border:1px solid #bbb;overflow:hidden}
#drawing svg{display:block;width:700px;height:auto;cursor:grab;touch-action:none;user-select:none}
.side{flex:1 1 440px;min-width:380px}
ul.legend{list-style:none;padding:0;margin:0}
ul.legend li{margin:3px 0}
.swatch{display:inline-block;width:16px;height:14px;border:1px solid #333;vertical-align:middle;margin-right:8px}
table{border-collapse:collapse}
td,th{padding:2px 8px;text-align:left;border-bottom:1px solid #eee}
tr.kind th{background:#f0f0f0;border-top:1px solid #ccc}
td.cfg{font-family:monospace;white-space:pre}
tr.hi td{background:#ffe08a}
rect.row.hi{stroke:#d00;stroke-width:3}
)";

const char *const PAGE_SCRIPT = R"(
(function () {
  var svg = document.querySelector('#drawing svg');
  function mark(id, on) {
    document.querySelectorAll('[data-row="' + id + '"]').forEach(function (e) { e.classList.toggle('hi', on); });
  }
  document.querySelectorAll('rect.row, #rows tr[data-row]').forEach(function (e) {
    e.addEventListener('mouseenter', function () { mark(e.getAttribute('data-row'), true); });
    e.addEventListener('mouseleave', function () { mark(e.getAttribute('data-row'), false); });
  });
  document.querySelectorAll('rect.row').forEach(function (e) {
    e.addEventListener('click', function () {
      var tr = document.querySelector('#rows tr[data-row="' + e.getAttribute('data-row') + '"]');
      if (tr) { tr.scrollIntoView({block: 'nearest'}); }
    });
  });
  var whole = svg.getAttribute('viewBox').split(' ').map(Number);
  var view = whole.slice();
  function show() { svg.setAttribute('viewBox', view.join(' ')); }
  function scale() { var r = svg.getBoundingClientRect(); return [view[2] / r.width, view[3] / r.height, r]; }
  svg.addEventListener('wheel', function (ev) {
    ev.preventDefault();
    var s = scale();
    var px = view[0] + (ev.clientX - s[2].left) * s[0], py = view[1] + (ev.clientY - s[2].top) * s[1];
    var w = Math.min(whole[2], Math.max(whole[2] / 64, view[2] * (ev.deltaY < 0 ? 0.8 : 1.25)));
    var k = w / view[2];
    view = [px - (px - view[0]) * k, py - (py - view[1]) * k, view[2] * k, view[3] * k];
    show();
  }, {passive: false});
  var drag = null;
  svg.addEventListener('pointerdown', function (ev) {
    drag = [ev.clientX, ev.clientY, view[0], view[1]];
    try { svg.setPointerCapture(ev.pointerId); } catch (e) { /* a pointer the page does not own */ }
  });
  svg.addEventListener('pointermove', function (ev) {
    if (!drag) { return; }
    var s = scale();
    view[0] = drag[2] - (ev.clientX - drag[0]) * s[0];
    view[1] = drag[3] - (ev.clientY - drag[1]) * s[1];
    show();
  });
  svg.addEventListener('pointerup', function () { drag = null; });
  svg.addEventListener('dblclick', function () { view = whole.slice(); show(); });
})();
)";

std::string Swatch(const std::string &strFill)
{
    return "<span class=\"swatch\" style=\"background:" + Cmd_Escape(strFill) + "\"></span>";
}

std::string LegendList(const std::vector<CmdLegendEntry> &vecLegend)
{
    std::string strHtml = "<ul class=\"legend\">\n";
    for (size_t i = 0; i < vecLegend.size(); i++) {
        strHtml += "<li class=\"legend-entry\" data-set=\"" + std::to_string(i) + "\">" + Swatch(vecLegend[i].strFill) +
                   Cmd_Escape(vecLegend[i].strLabel) + "</li>\n";
    }
    return strHtml + "</ul>\n";
}

/* The colour of a drawn row's legend entry; nothing for rows that are not drawn. */
std::string SwatchOf(const CmdRow &r, const std::vector<CmdLegendEntry> &vecLegend)
{
    if (r.eKind != KIND_UVLAN_QINQ && r.eKind != KIND_QINQ_MATCH) {
        return "";
    }
    std::string strLabel = Cmd_LegendLabel(r);
    for (const CmdLegendEntry &e : vecLegend) {
        if (e.strLabel == strLabel) {
            return Swatch(e.strFill);
        }
    }
    return "";
}

/* Every row under the heading of its kind; a drawn row with the colour of its legend entry. */
std::string RowTable(const CmdIfConfig &stConfig, const std::vector<CmdLegendEntry> &vecLegend)
{
    std::string strHtml = "<table id=\"rows\">\n";
    for (int k = 0; k < KIND_NUM; k++) {
        const CmdKindInfo &stKind = Cmd_KindInfo(static_cast<CmdKind>(k));
        const std::vector<CmdRow> &vecRows = stConfig.avecRows[k];
        strHtml += "<tr class=\"kind\"><th colspan=\"3\">" + Cmd_Escape(stKind.pcTitle) + ": " +
                   (vecRows.empty() ? std::string("none") : std::to_string(vecRows.size())) + "</th></tr>\n";
        for (const CmdRow &r : vecRows) {
            strHtml += "<tr data-row=\"" + std::to_string(r.uiNo) + "\" data-kind=\"" + stKind.pcShort + "\"><td>#" +
                       std::to_string(r.uiNo) + "</td><td>" + SwatchOf(r, vecLegend) + "</td><td class=\"cfg\">" +
                       Cmd_Escape(Cmd_RowText(r)) + "</td></tr>\n";
        }
    }
    return strHtml + "</table>\n";
}

}  // namespace

std::string Cmd_Page(const CmdIfConfig &stConfig)
{
    CmdDrawing stDrawing = Cmd_Draw(stConfig, false);
    std::string strTitle = "interface " + std::to_string(stConfig.uiIfIndex);
    return std::string("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n") +
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
           "script-src 'unsafe-inline'\">\n<title>" + strTitle + ": VLAN configuration</title>\n<style>" + PAGE_STYLE +
           "</style>\n</head>\n<body>\n<h1>" + strTitle + ": VLAN configuration</h1>\n" +
           "<p class=\"help\">Point at a rectangle or a row to find the other. Wheel: zoom; drag: pan; "
           "double click: the whole drawing again.</p>\n<div class=\"layout\">\n<div id=\"drawing\">\n" + stDrawing.strSvg +
           "</div>\n<div class=\"side\">\n<h2>Legend</h2>\n" + LegendList(stDrawing.vecLegend) + "<h2>Rows</h2>\n" +
           RowTable(stConfig, stDrawing.vecLegend) + "</div>\n</div>\n<script>" + PAGE_SCRIPT + "</script>\n</body>\n</html>\n";
}
