// The fixed parts of the map page: its style before the data, its script after it.
#pragma once

namespace corvi {

inline constexpr char kMapPageHead[] = R"page(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><title>corvi map</title>
<style>
body{font:14px system-ui,sans-serif;margin:16px;color:#222;background:#fafafa}
h1{font-size:18px;margin:0 0 4px}h2{font-size:16px}h3{font-size:14px;margin:12px 0 4px}
.report{font-family:monospace}.failed{color:#b00020;font-weight:bold}
.verdict{display:inline-block;padding:1px 8px;border-radius:3px;color:#fff;font-weight:bold}
.v-clean{background:#2e7d32}.v-benign{background:#827717}.v-unsupported{background:#5d4037}
.v-damaged{background:#ef6c00}.v-broken{background:#b00020}
.map{display:flex;height:42px;border:1px solid #888;margin:4px 0;background:#fff}
.band{position:relative;min-width:3px;border-right:1px solid #fff;cursor:pointer;overflow:hidden;
  font:10px monospace;color:#fff;white-space:nowrap}
.band:hover{outline:2px solid #000;z-index:2}.band.sel{outline:3px solid #000;z-index:3}
.k-mark{background:#555}.k-app{background:#2e7d32}.k-table{background:#1565c0}
.k-frame{background:#6a1b9a}.k-scan{background:#ef6c00}.k-data{background:#f9a825;color:#000}
.k-gap{background:#9e9e9e}.k-tail{background:#9e9e9e}
.unclaimed{position:absolute;top:0;bottom:0;background:repeating-linear-gradient(45deg,#ff0040,
  #ff0040 4px,#ffd600 4px,#ffd600 8px)}
.issueat{position:absolute;top:0;bottom:0;min-width:3px;background:#000;outline:2px solid #ff0040}
.legend span{display:inline-block;padding:1px 6px;margin-right:4px;color:#fff;font-size:12px}
pre{background:#fff;border:1px solid #ccc;padding:6px;overflow:auto;max-height:320px}
.hex{font:12px monospace;white-space:pre;background:#fff;border:1px solid #ccc;padding:6px;
  max-height:360px;overflow:auto}
.hex .c{text-decoration:underline;text-decoration-color:#1565c0}.hex .u{background:#ffb3c1}
.hex .f{background:#000;color:#fff}
table{border-collapse:collapse;font:12px monospace}td,th{border:1px solid #ddd;padding:1px 6px;
  text-align:left;vertical-align:top}
ul.list{font:12px monospace;padding-left:20px}ul.list li{margin:1px 0}
a.at{color:#1565c0;cursor:pointer;text-decoration:underline}
.s-info{color:#555}.s-benign{color:#827717}.s-damaged{color:#ef6c00}.s-broken{color:#b00020}
.dir{margin:4px 0 4px 0}.dir>summary{font:12px monospace;font-weight:bold}
.pic{position:relative;display:inline-block;max-width:100%}.pic img{max-width:100%;display:block}
.grid{position:absolute;inset:0;pointer-events:none}
#errors:empty{display:none}#errors{color:#b00020}
</style></head><body>
<h1 id="title"></h1>
<div id="errors"></div>
<p><span id="verdict" class="verdict"></span> <span id="report" class="report"></span></p>
<div id="failure" class="report"></div>
<section id="issues"></section>
<div class="legend"><span class="k-mark">markers</span><span class="k-app">APPn / COM</span><span
 class="k-table">tables</span><span class="k-frame">frame</span><span class="k-scan">scan
 header</span><span class="k-data">entropy-coded data</span><span class="k-gap">between</span><span
 class="unclaimed" style="position:static">unclaimed</span>
<label><input type="checkbox" id="log"> logarithmic widths</label></div>
<div id="maps"></div>
<section id="detail" hidden><h2 id="dtitle"></h2><pre id="ddump"></pre>
<div id="hex" class="hex"></div><button id="more">4 KB more</button></section>
<section id="unclaimed"></section>
<section id="decode"></section>
<section id="exif"></section>
)page";

inline constexpr char kMapPageTail[] = R"page(<script>
"use strict";
const errors = document.getElementById("errors");
window.addEventListener("error", e => { errors.textContent += "Error: " + e.message + "\n"; });
const report = corviMap.report;
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
function pairs(list) {
  const out = [];
  for (let i = 0; i + 1 < list.length; i += 2) out.push([list[i], list[i + 1]]);
  return out;
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
const dumps = new Map(corviMap.dumps.map(([first, text]) => [first, text]));
const claims = pairs(corviMap.claims);
// The streams of the report: the file, and the thumbnails nested in it.
const fileStream = {first: 0, last: report.length - 1, segments: report.segments || [],
  eoi: report.eoi, directories: report.directories || [], thumbnails: report.thumbnails || []};
// The bands of a stream in file order: its start, each segment and each scan's data, its end,
// and what lies between them. Each band: {kind, first, last, label, dump}.
function bandsOf(stream) {
  const found = [];
  const data = bytes();
  if (stream.last - stream.first >= 1 && data[stream.first] === 0xFF &&
      data[stream.first + 1] === 0xD8) {
    found.push({kind: "SOI", first: stream.first, last: stream.first + 1});
  }
  let scan = 0;
  for (const s of stream.segments) {
    // A refused length ends at the stream.
    const last = Math.min(Math.max(s.last, s.first + 3), stream.last);
    found.push({kind: s.name, first: s.first, last, dump: dumps.get(s.first), segment: s});
    if (s.name === "SOS") {
      ++scan;
      if (s.data_last !== undefined) {
        found.push({kind: "data", first: s.last + 1, last: s.data_last, label: "scan " + scan +
            " data", segment: s});
      }
    }
  }
  if (stream.eoi !== null && stream.eoi !== undefined) {
    found.push({kind: "EOI", first: stream.eoi, last: stream.eoi + 1});
  }
  found.sort((a, b) => a.first - b.first);
  const bands = [];
  let next = stream.first;
  for (const band of found) {
    if (band.first > next) bands.push({kind: "gap", first: next, last: band.first - 1});
    if (band.first >= next && band.first <= band.last && band.last <= stream.last) {
      next = band.last + 1;
      bands.push(band);
    }
  }
  if (next <= stream.last) bands.push({kind: "tail", first: next, last: stream.last});
  return bands;
}
const unclaimed = (report.unclaimed || []).map(u => [u.first, u.last + 1]);
// Each issue's bytes: from its offset, its length where known, at least one byte; an offset at
// the end of the file stands on the last byte.
const issues = report.issues.filter(i => i.offset !== null).map(i => {
  const first = Math.min(i.offset, report.length - 1);
  return [first, first + Math.max(1, i.length || 1), i];
});
const drawn = [];  // [stream, bands, map element] of each map drawn
function drawMap(stream, host, label) {
  const bands = bandsOf(stream);
  host.appendChild(el("h3", "", label));
  let left = 0, ranges = 0;
  for (const [s, e] of unclaimed) {
    if (s <= stream.last && e > stream.first) {
      left += Math.min(e, stream.last + 1) - Math.max(s, stream.first);
      ++ranges;
    }
  }
  host.appendChild(el("div", "report", bands.length + " bands, bytes " + stream.first + " - " +
      stream.last + ", " + left + " unclaimed in " + ranges + " ranges"));
  const map = el("div", "map");
  const log = document.getElementById("log").checked;
  bands.forEach(band => {
    const size = band.last - band.first + 1;
    const name = band.label || band.kind;
    const div = el("div", "band k-" + classOf(band.kind), name);
    div.style.flexGrow = log ? Math.log2(size + 1) + 1 : size;
    div.style.flexBasis = "0";
    div.title = name + " (bytes " + band.first + " - " + band.last + ", " + size + " bytes)";
    const mark = (s, e, cls) => {
      if (e <= band.first || s > band.last) return;
      const u = el("div", cls);
      u.style.left = (100 * (Math.max(s, band.first) - band.first) / size) + "%";
      u.style.width = "max(2px," + (100 * (Math.min(e, band.last + 1) - Math.max(s, band.first)) /
          size) + "%)";
      div.appendChild(u);
    };
    for (const [s, e] of unclaimed) mark(s, e, "unclaimed");
    if (stream === fileStream) {
      for (const [s, e, issue] of issues) if (issue.severity !== "info") mark(s, e, "issueat");
    }
    div.addEventListener("click", () => show(stream, band, div, band.first));
    map.appendChild(div);
  });
  host.appendChild(map);
  drawn.push([stream, bands, map]);
}
let shown = null;
function show(stream, band, div, focus, scroll) {
  document.querySelectorAll(".band.sel").forEach(b => b.classList.remove("sel"));
  div.classList.add("sel");
  const name = band.label || band.kind;
  document.getElementById("detail").hidden = false;
  document.getElementById("dtitle").textContent =
      name + ": bytes " + band.first + " - " + band.last + " (" + (band.last - band.first + 1) +
      " bytes)";
  const none = band.segment && corviMap.dumpsCut && band.kind !== "data" ?
      "(left out: the page holds 32 MB of dumps at most)" : "(no dump line: " + name + ")";
  document.getElementById("ddump").textContent = band.dump || none;
  const start = Math.max(band.first, focus - (focus % 16) - 256);
  shown = {first: start, last: band.last, end: Math.min(band.last + 1, start + 4096)};
  drawHex();
  if (scroll) document.getElementById("detail").scrollIntoView();
}
// Selects the deepest band that holds `offset` and shows its bytes around it.
function showOffset(offset, scroll) {
  let hit = null;
  for (const [stream, bands, map] of drawn) {
    bands.forEach((band, i) => {
      if (offset >= band.first && offset <= band.last) hit = [stream, band, map.children[i]];
    });
  }
  if (hit) show(hit[0], hit[1], hit[2], offset, scroll);
}
function drawHex() {
  const {first, last, end} = shown;
  const mark = new Uint8Array(end - first);  // 1 claimed, 2 unclaimed, 3 an issue's bytes
  const paint = (list, value) => {
    for (const [s, e] of list) {
      for (let i = Math.max(s, first); i < Math.min(e, end); ++i) mark[i - first] = value;
    }
  };
  paint(claims, 1);
  paint(unclaimed, 2);
  paint(issues.filter(([s, e, i]) => i.severity !== "info"), 3);
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
      hex.appendChild(el("span", cls[mark[i - first]], b.toString(16).padStart(2, "0")));
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
function at(offset, text) {
  const a = el("a", "at", text);
  a.addEventListener("click", () => showOffset(offset, true));
  return a;
}
function base64Of(first, last) {
  const data = bytes();
  let text = "";
  for (let i = first; i <= last && i < data.length; ++i) text += String.fromCharCode(data[i]);
  return btoa(text);
}
const typeNames = ["?", "BYTE", "ASCII", "SHORT", "LONG", "RATIONAL", "SBYTE", "UNDEFINED",
    "SSHORT", "SLONG", "SRATIONAL", "FLOAT", "DOUBLE"];
function valueText(entry) {
  const v = entry.value;
  if (v === null) return "(" + entry.head + " ...)";
  if (Array.isArray(v) && v.length === 2 && !Array.isArray(v[0]) && entry.type % 5 === 0 &&
      entry.count === 1) {
    return v[0] + "/" + v[1];
  }
  if (Array.isArray(v)) {
    return v.map(x => Array.isArray(x) ? x[0] + "/" + x[1] : String(x)).join(" ");
  }
  return typeof v === "string" && entry.type === 2 ? JSON.stringify(v) : String(v);
}
// A stream's Exif directories by name, each inside the one it hangs from, entries as a table.
function drawExif(stream, host, label) {
  if (stream.directories.length === 0) return;
  host.appendChild(el("h3", "", "Exif of " + label));
  const boxes = [];
  stream.directories.forEach((d, index) => {
    const box = el("details", "dir");
    box.open = true;
    box.appendChild(el("summary", "", d.name + (d.make ? " (" + d.make + ")" : "") + ", " +
        (d.byte_order === "MM" ? "Motorola" : "Intel") + " order, " + d.entries.length +
        " entries"));
    const table = el("table");
    const head = el("tr");
    for (const h of ["tag", "name", "type", "count", "value", "bytes"]) head.appendChild(el("th", "", h));
    table.appendChild(head);
    for (const e of d.entries) {
      const row = el("tr", "exifrow");
      row.appendChild(el("td", "", "0x" + e.tag.toString(16).padStart(4, "0")));
      row.appendChild(el("td", "", e.name));
      row.appendChild(el("td", "", typeNames[e.type] || "type " + e.type));
      row.appendChild(el("td", "", String(e.count)));
      row.appendChild(el("td", "", valueText(e)));
      const where = el("td");
      if (e.last >= e.first) where.appendChild(at(e.first, e.first + " - " + e.last));
      row.appendChild(where);
      table.appendChild(row);
    }
    box.appendChild(table);
    boxes.push(box);
    const parent = d.parent !== null && d.parent !== undefined ? boxes[d.parent] : null;
    (parent || host).appendChild(box);
    if (parent) box.style.marginLeft = "16px";
  });
}
function drawStream(stream, host, label, depth) {
  drawMap(stream, host, label);
  drawExif(stream, document.getElementById("exif"), label);
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
  drawn.length = 0;
  drawStream(fileStream, maps, "file", 0);
}
function drawIssues() {
  const host = document.getElementById("issues");
  if (report.issues.length === 0) return;
  host.appendChild(el("h2", "", "Issues"));
  const list = el("ul", "list");
  for (const issue of report.issues) {
    const item = el("li", "issue s-" + issue.severity);
    item.appendChild(el("span", "", issue.severity + " " + issue.kind + " "));
    if (issue.offset !== null) {
      item.appendChild(at(Math.min(issue.offset, report.length - 1), "at " + issue.offset));
    }
    item.appendChild(el("span", "", ": " + issue.message));
    list.appendChild(item);
  }
  host.appendChild(list);
  if (report.issues_omitted) host.appendChild(el("div", "", report.issues_omitted + " more"));
}
function drawUnclaimed() {
  const host = document.getElementById("unclaimed");
  const ranges = report.unclaimed || [];
  if (ranges.length === 0) return;
  host.appendChild(el("h2", "", "Unclaimed bytes"));
  const list = el("ul", "list");
  for (const u of ranges) {
    const item = el("li", "unclaimedrow");
    item.appendChild(at(u.first, "bytes " + u.first + " - " + u.last));
    item.appendChild(el("span", "", " (" + (u.last - u.first + 1) + " bytes) " +
        (u.inside ? "inside " + u.inside : "after " + u.after + ", before " + u.before)));
    list.appendChild(item);
  }
  host.appendChild(list);
  if (report.unclaimed_omitted) {
    host.appendChild(el("div", "", report.unclaimed_omitted + " more ranges"));
  }
}
document.title = report.file + " - corvi map";
document.getElementById("title").textContent = report.file + " (" + report.length + " bytes)";
const verdict = document.getElementById("verdict");
verdict.textContent = report.verdict;
verdict.classList.add("v-" + report.verdict);
const line = document.getElementById("report");
line.textContent = corviMap.line;
let claimed = 0;
for (const [s, e] of claims) claimed += e - s;
// Where corvi's scan stopped: the issue that gives its message.
const failure = report.scan_failure ?
    report.issues.find(i => i.message === report.scan_failure && i.offset !== null) : null;
if (report.scan_failure) {
  line.className = "report failed";
  const text = "corvi's scan claimed " + claimed + " of " + report.length + " bytes before it " +
      "failed" + (failure ? " at byte " + failure.offset : "") + "; the segments below are " +
      "the check's, which reads past the failure";
  document.getElementById("failure").appendChild(el("div", "", text));
}
document.getElementById("log").addEventListener("change", drawAll);
drawIssues();
drawAll();
drawUnclaimed();
// A file in trouble opens where the trouble is: corvi's failure, or the worst issue.
const worst = ["broken", "damaged", "benign"];
const first = failure || report.issues.filter(i => i.offset !== null)
    .sort((a, b) => worst.indexOf(a.severity) - worst.indexOf(b.severity))
    .find(i => worst.includes(i.severity));
if (first) showOffset(Math.min(first.offset, report.length - 1));
if (corviMap.decodeText) {
  const host = document.getElementById("decode");
  host.appendChild(el("h2", "", "Decoded frame"));
  host.appendChild(el("pre", "", corviMap.decodeText));
  const decoded = report.decoded;
  if (decoded && decoded.width > 0 && report.length < 20 * 1024 * 1024) {
    const pic = el("div", "pic");
    const img = el("img");
    img.alt = "the decoded picture";
    img.src = "data:image/jpeg;base64," + corviBytes;
    const grid = el("div", "grid");
    img.addEventListener("load", () => {
      const scale = img.clientWidth / decoded.width;
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
const [, fileBands, fileMap] = drawn[0];
document.body.dataset.kinds = fileBands.map(b => b.kind).join(" ");
document.body.dataset.bands = fileMap.children.length;
document.body.dataset.unclaimed = fileMap.querySelectorAll(".unclaimed").length;
document.body.dataset.unclaimedRows = document.querySelectorAll(".unclaimedrow").length;
document.body.dataset.issues = document.querySelectorAll("li.issue").length;
document.body.dataset.exifRows = document.querySelectorAll(".exifrow").length;
document.body.dataset.directories = document.querySelectorAll("details.dir").length;
document.body.dataset.maps = drawn.length;
document.body.dataset.claimed = claimed;
document.body.dataset.ready = "1";
</script>
</body></html>
)page";

}  // namespace corvi
