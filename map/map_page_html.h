// The fixed parts of the map page: its style before the data, its script after it.
#pragma once

namespace corvi {

inline constexpr char kMapPageHead[] = R"page(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>corvi map</title>
<style>
body{font:14px system-ui,sans-serif;margin:16px;color:#222;background:#fafafa}
h1{font-size:18px;margin:0 0 4px}h2{font-size:16px}h3{font-size:14px;margin:12px 0 4px}
.report{font-family:monospace}.failed{color:#b00020;font-weight:bold}
.map{display:flex;height:42px;border:1px solid #888;margin:4px 0;background:#fff}
.band{position:relative;min-width:3px;border-right:1px solid #fff;cursor:pointer;overflow:hidden;
  font:10px monospace;color:#fff;white-space:nowrap}
.band:hover{outline:2px solid #000;z-index:2}.band.sel{outline:3px solid #000;z-index:3}
.k-mark{background:#555}.k-app{background:#2e7d32}.k-table{background:#1565c0}
.k-frame{background:#6a1b9a}.k-scan{background:#ef6c00}.k-data{background:#f9a825;color:#000}
.k-gap{background:#9e9e9e}.k-tail{background:#9e9e9e}
.unclaimed{position:absolute;top:0;bottom:0;background:repeating-linear-gradient(45deg,#ff0040,
  #ff0040 4px,#ffd600 4px,#ffd600 8px)}
.failat{position:absolute;top:0;bottom:0;min-width:3px;background:#000;outline:2px solid #ff0040}
.legend span{display:inline-block;padding:1px 6px;margin-right:4px;color:#fff;font-size:12px}
pre{background:#fff;border:1px solid #ccc;padding:6px;overflow:auto;max-height:320px}
.hex{font:12px monospace;white-space:pre;background:#fff;border:1px solid #ccc;padding:6px;
  max-height:360px;overflow:auto}
.hex .c{text-decoration:underline;text-decoration-color:#1565c0}.hex .u{background:#ffb3c1}
.hex .f{background:#000;color:#fff}
table{border-collapse:collapse;font:12px monospace}td,th{border:1px solid #ddd;padding:1px 6px;
  text-align:left;vertical-align:top}
ul.tree{list-style:none;padding-left:16px;margin:2px 0;font:12px monospace}
.pic{position:relative;display:inline-block;max-width:100%}.pic img{max-width:100%;display:block}
.grid{position:absolute;inset:0;pointer-events:none}
#errors:empty{display:none}#errors{color:#b00020}
</style></head><body>
<h1 id="title"></h1>
<div id="errors"></div>
<p id="report" class="report"></p>
<div class="legend"><span class="k-mark">markers</span><span class="k-app">APPn / COM</span><span
 class="k-table">tables</span><span class="k-frame">frame</span><span class="k-scan">scan
 header</span><span class="k-data">compressed data</span><span class="k-gap">between</span><span
 class="unclaimed" style="position:static">unclaimed</span>
<label><input type="checkbox" id="log"> logarithmic widths</label></div>
<div id="maps"></div>
<section id="detail" hidden><h2 id="dtitle"></h2><pre id="ddump"></pre>
<div id="hex" class="hex"></div><button id="more">4 KB more</button></section>
<section id="decode"></section>
<section id="exif"></section>
)page";

inline constexpr char kMapPageTail[] = R"page(<script>
"use strict";
const errors = document.getElementById("errors");
window.addEventListener("error", e => { errors.textContent += "Error: " + e.message + "\n"; });
let bytesCache = null;
function bytes() {
  if (!bytesCache) {
    const text = atob(corviBytes);
    bytesCache = new Uint8Array(text.length);
    for (let i = 0; i < text.length; ++i) bytesCache[i] = text.charCodeAt(i);
  }
  return bytesCache;
}
function el(tag, cls, text) {
  const e = document.createElement(tag);
  if (cls) e.className = cls;
  if (text !== undefined) e.textContent = text;
  return e;
}
function classOf(kind) {
  if (kind === "SOI" || kind === "EOI" || kind.startsWith("RST")) return "mark";
  if (kind.startsWith("APP") || kind === "COM") return "app";
  if (kind === "DQT" || kind === "DHT" || kind === "DRI" || kind === "DAC") return "table";
  if (kind.startsWith("SOF")) return "frame";
  if (kind === "SOS") return "scan";
  if (kind === "data") return "data";
  return kind === "tail" ? "tail" : "gap";
}
function pairs(list) {
  const out = [];
  for (let i = 0; i + 1 < list.length; i += 2) out.push([list[i], list[i + 1]]);
  return out;
}
const bandsOf = [];
function drawMap(stream, host, label) {
  host.appendChild(el("h3", "", label));
  const unclaimed = pairs(stream.unclaimed);
  let left = 0;
  for (const [s, e] of unclaimed) left += e - s;
  host.appendChild(el("div", "report", stream.bands.length + " bands, bytes " + stream.first +
      " - " + stream.last + ", " + left + " unclaimed in " + unclaimed.length + " ranges"));
  const map = el("div", "map");
  const log = document.getElementById("log").checked;
  stream.bands.forEach(band => {
    const [kind, first, last, dump] = band;
    const size = last - first + 1;
    const div = el("div", "band k-" + classOf(kind), kind);
    div.style.flexGrow = log ? Math.log2(size + 1) + 1 : size;
    div.style.flexBasis = "0";
    div.title = kind + " (bytes " + first + " - " + last + ", " + size + " bytes)";
    for (const [s, e] of unclaimed) {
      if (e <= first || s > last) continue;
      const u = el("div", "unclaimed");
      u.style.left = (100 * (Math.max(s, first) - first) / size) + "%";
      u.style.width = "max(2px," + (100 * (Math.min(e, last + 1) - Math.max(s, first)) / size) + "%)";
      div.appendChild(u);
    }
    const [fs] = corviMap.failedAt;
    if (corviMap.failed && stream === corviMap.file && fs >= first && fs <= last) {
      const f = el("div", "failat");
      f.style.left = (100 * (fs - first) / size) + "%";
      div.appendChild(f);
    }
    div.addEventListener("click", () => show(stream, band, div));
    map.appendChild(div);
  });
  host.appendChild(map);
  bandsOf.push([stream, map]);
}
let shown = null;
function show(stream, band, div) {
  document.querySelectorAll(".band.sel").forEach(b => b.classList.remove("sel"));
  div.classList.add("sel");
  const [kind, first, last, dump] = band;
  document.getElementById("detail").hidden = false;
  document.getElementById("dtitle").textContent =
      kind + ": bytes " + first + " - " + last + " (" + (last - first + 1) + " bytes)";
  document.getElementById("ddump").textContent = dump || "(no dump line: " + kind + ")";
  shown = {stream, first, last, end: Math.min(last + 1, first + 4096)};
  drawHex();
}
function drawHex() {
  const {stream, first, last, end} = shown;
  const mark = new Uint8Array(end - first);  // 1 claimed, 2 unclaimed, 3 where the scan failed
  const claims = pairs(stream.claims);
  for (const [s, e] of claims) {
    for (let i = Math.max(s, first); i < Math.min(e, end); ++i) mark[i - first] = 1;
  }
  for (const [s, e] of pairs(stream.unclaimed)) {
    for (let i = Math.max(s, first); i < Math.min(e, end); ++i) mark[i - first] = 2;
  }
  if (corviMap.failed) {
    const [s, e] = corviMap.failedAt;
    for (let i = Math.max(s, first); i < Math.min(Math.max(e, s + 1), end); ++i) mark[i - first] = 3;
  }
  const data = bytes();
  const hex = document.getElementById("hex");
  hex.textContent = "";
  const cls = ["", "c", "u", "f"];
  for (let row = first - (first % 16); row < end; row += 16) {
    hex.appendChild(document.createTextNode(row.toString(16).padStart(8, "0") + "  "));
    let text = "";
    for (let i = row; i < row + 16; ++i) {
      if (i < first || i >= end) { hex.appendChild(document.createTextNode("   ")); text += " "; continue; }
      const b = data[i];
      const span = el("span", cls[mark[i - first]], b.toString(16).padStart(2, "0"));
      hex.appendChild(span);
      hex.appendChild(document.createTextNode(" "));
      text += b >= 32 && b < 127 ? String.fromCharCode(b) : ".";
    }
    hex.appendChild(document.createTextNode(" " + text + "\n"));
  }
  document.getElementById("more").hidden = end > last;
}
document.getElementById("more").addEventListener("click", () => {
  shown.end = Math.min(shown.last + 1, shown.end + 4096);
  drawHex();
});
function base64Of(first, last) {
  const data = bytes();
  let text = "";
  for (let i = first; i <= last && i < data.length; ++i) text += String.fromCharCode(data[i]);
  return btoa(text);
}
function drawExif(rows, host, label) {
  if (rows.length === 0) return;
  const details = el("details");
  details.open = true;
  details.appendChild(el("summary", "", label + " (" + rows.length + " entries)"));
  const root = el("ul", "tree");
  details.appendChild(root);
  const stack = [root];
  let lastItem = null;
  for (const [depth, ifd, tag, name, type, count, value] of rows) {
    while (stack.length - 1 > depth) stack.pop();
    while (stack.length - 1 < depth && lastItem) {
      const nested = el("details");
      nested.open = true;
      nested.appendChild(el("summary", "", "directory"));
      const list = el("ul", "tree");
      nested.appendChild(list);
      lastItem.appendChild(nested);
      stack.push(list);
    }
    const item = el("li", "exifrow", "IFD " + ifd + "  0x" + tag.toString(16) + " " + name +
        "  type " + type + " count " + count + ": " + value);
    stack[stack.length - 1].appendChild(item);
    lastItem = item;
  }
  host.appendChild(details);
}
function drawStream(stream, host, label, depth) {
  drawMap(stream, host, label);
  drawExif(stream.exif, document.getElementById("exif"), "Exif of " + label);
  stream.thumbnails.forEach((t, i) => {
    const box = el("div");
    box.style.marginLeft = (16 * (depth + 1)) + "px";
    const name = "thumbnail " + (i + 1) + " of " + label;
    const img = el("img");
    img.alt = name;
    img.src = "data:image/jpeg;base64," + base64Of(t.first, t.last);
    img.style.maxHeight = "120px";
    drawStream(t, box, name, depth + 1);
    box.appendChild(img);
    host.appendChild(box);
  });
}
function drawAll() {
  const maps = document.getElementById("maps");
  maps.textContent = "";
  document.getElementById("exif").textContent = "";
  bandsOf.length = 0;
  drawStream(corviMap.file, maps, "file", 0);
}
document.getElementById("title").textContent = corviMap.name + " (" + corviMap.length + " bytes)";
const report = document.getElementById("report");
report.textContent = corviMap.report;
if (corviMap.failed) {
  report.className = "report failed";
  report.appendChild(el("div", "report", "identified " + corviMap.identified + " bytes out of " +
      corviMap.length + " before the failure, at bytes " + corviMap.failedAt[0] + " - " +
      Math.max(corviMap.failedAt[0], corviMap.failedAt[1] - 1)));
}
document.getElementById("log").addEventListener("change", drawAll);
drawAll();
if (corviMap.failed) {
  const [fs] = corviMap.failedAt;
  const [stream, map] = bandsOf[0];
  stream.bands.forEach((band, i) => {
    if (fs >= band[1] && fs <= band[2]) show(stream, band, map.children[i]);
  });
}
if (corviMap.decoded) {
  const host = document.getElementById("decode");
  host.appendChild(el("h2", "", "Decoded frame"));
  host.appendChild(el("pre", "", corviMap.decodeReport));
  if (corviMap.width > 0 && corviMap.length < 20 * 1024 * 1024) {
    const pic = el("div", "pic");
    const img = el("img");
    img.alt = "the decoded picture";
    img.src = "data:image/jpeg;base64," + corviBytes;
    const grid = el("div", "grid");
    img.addEventListener("load", () => {
      const scale = img.clientWidth / corviMap.width;
      const [w, h] = corviMap.mcu;
      grid.style.backgroundImage = "linear-gradient(to right, rgba(255,0,64,.6) 1px, transparent 1px)," +
          "linear-gradient(to bottom, rgba(255,0,64,.6) 1px, transparent 1px)";
      grid.style.backgroundSize = (w * scale) + "px " + (h * scale) + "px";
    });
    pic.appendChild(img);
    pic.appendChild(grid);
    host.appendChild(el("div", "report", "MCU grid: " + corviMap.mcu[0] + " x " + corviMap.mcu[1] +
        " pixels"));
    host.appendChild(pic);
  }
}
// What the page drew, for a browser test to read from the DOM.
const fileMap = bandsOf[0][1];
document.body.dataset.bands = fileMap.children.length;
document.body.dataset.unclaimed = fileMap.querySelectorAll(".unclaimed").length;
document.body.dataset.exifRows = document.querySelectorAll(".exifrow").length;
document.body.dataset.maps = bandsOf.length;
document.body.dataset.ready = "1";
</script>
</body></html>
)page";

}  // namespace corvi
