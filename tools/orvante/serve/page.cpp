// The page. Its script asks /v1/preview 300 ms after the last key, shows
// the label count and warnings from the answer's headers, lists
// /v1/printers and prints through /v1/printers/NAME/jobs. A service with a
// token answers 401: the page then asks for the token and keeps it for
// the tab's life (sessionStorage).

#include "page.hpp"

namespace orvante::serve {

std::string_view pageHtml() {
  static constexpr std::string_view kPage = R"PAGE(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>orvante: label preview</title>
<style>
  body { font-family: sans-serif; margin: 0; background: #eef0f2; color: #222; }
  header { background: #2b3a4a; color: #fff; padding: 8px 16px; font-size: 18px; }
  main { display: flex; gap: 16px; padding: 16px; align-items: flex-start; }
  section { background: #fff; border-radius: 6px; padding: 12px; box-shadow: 0 1px 3px #0002; }
  #editor { flex: 1 1 45%; }
  #commands { width: 100%; height: 420px; font-family: monospace; font-size: 13px; box-sizing: border-box; }
  #view { flex: 1 1 55%; text-align: center; }
  #preview { max-width: 100%; max-height: 640px; border: 1px solid #999; background: #fff; image-rendering: pixelated; }
  #facts { margin: 8px 0; font-size: 14px; }
  #warnings { color: #a15c00; font-size: 13px; white-space: pre-wrap; text-align: left; }
  #error { color: #b00020; font-size: 13px; white-space: pre-wrap; text-align: left; }
  table { border-collapse: collapse; width: 100%; font-size: 14px; margin-top: 8px; }
  td, th { border-bottom: 1px solid #ddd; padding: 4px 6px; text-align: left; }
  .unreachable { color: #b00020; }
  #token-row { display: none; margin-bottom: 8px; }
</style>
</head>
<body>
<header>orvante &mdash; label preview</header>
<main>
  <section id="editor">
    <div id="token-row">Token: <input id="token" type="password" size="30"> <button id="use-token">Use</button></div>
    <label>Printer commands</label>
    <textarea id="commands" spellcheck="false">SIZE 50 mm, 30 mm
GAP 2 mm, 0 mm
CLS
BOX 8,8,392,232,4
TEXT 24,24,"3",0,1,1,"Hello from orvante"
BAR 24,70,352,4
BARCODE 24,90,"128",80,1,0,2,2,"SHIP-000421"
PRINT 1,1
</textarea>
    <div>
      <label>Resolution <select id="dpi"><option value="203">203 dpi</option><option value="300">300 dpi</option></select></label>
      <label>Label <input id="index" type="number" min="0" value="0" style="width: 4em"></label>
    </div>
    <h3>Printers</h3>
    <table><thead><tr><th>Name</th><th>Status</th><th></th></tr></thead><tbody id="printers"></tbody></table>
    <div id="job"></div>
  </section>
  <section id="view">
    <div id="facts"><span id="count">&nbsp;</span></div>
    <img id="preview" alt="label preview" data-drawn="0">
    <div id="warnings"></div>
    <div id="error"></div>
  </section>
</main>
<script>
"use strict";
const $ = (id) => document.getElementById(id);
let token = sessionStorage.getItem("orvante-token") || "";
let shown = null;
let asked = 0;

function headers(extra) {
  const all = Object.assign({}, extra || {});
  if (token) all["Authorization"] = "Bearer " + token;
  return all;
}

async function call(path, options) {
  const answer = await fetch(path, Object.assign({}, options, { headers: headers(options && options.headers) }));
  if (answer.status === 401) $("token-row").style.display = "block";
  return answer;
}

async function reason(answer) {
  try { return (await answer.json()).error || answer.statusText; } catch (e) { return answer.statusText; }
}

async function preview() {
  const mine = ++asked;
  const query = "?dpi=" + $("dpi").value + "&index=" + (parseInt($("index").value, 10) || 0);
  let answer;
  try {
    answer = await call("/v1/preview" + query, { method: "POST", body: $("commands").value,
                                                  headers: { "Content-Type": "text/plain" } });
  } catch (e) {
    $("error").textContent = "the service did not answer";
    return;
  }
  if (mine !== asked) return;  // a newer preview is on its way
  $("warnings").textContent = answer.headers.get("X-Warnings") || "";
  if (!answer.ok) {
    $("error").textContent = answer.status + ": " + await reason(answer);
    $("count").textContent = "no label";
    return;
  }
  $("error").textContent = "";
  const count = answer.headers.get("X-Label-Count");
  $("count").textContent = count + (count === "1" ? " label" : " labels");
  const picture = URL.createObjectURL(await answer.blob());
  const img = $("preview");
  img.onload = () => {
    if (shown) URL.revokeObjectURL(shown);
    shown = picture;
    img.dataset.drawn = String(parseInt(img.dataset.drawn, 10) + 1);
  };
  img.src = picture;
}

let timer = null;
function soon() {
  clearTimeout(timer);
  timer = setTimeout(preview, 300);
}

async function printers() {
  let answer;
  try { answer = await call("/v1/printers"); } catch (e) { return; }
  if (!answer.ok) return;
  const list = await answer.json();
  const body = $("printers");
  body.textContent = "";
  if (list.length === 0) {
    const row = body.insertRow();
    row.insertCell().textContent = "none (start the service with --printer NAME=URI)";
  }
  for (const printer of list) {
    const row = body.insertRow();
    row.insertCell().textContent = printer.name;
    const state = row.insertCell();
    state.textContent = printer.status.words;
    if (printer.status.byte === null) state.className = "unreachable";
    const button = document.createElement("button");
    button.textContent = "Print";
    button.onclick = () => print(printer.name);
    row.insertCell().appendChild(button);
  }
}

async function print(name) {
  const answer = await call("/v1/printers/" + encodeURIComponent(name) + "/jobs",
                            { method: "POST", body: $("commands").value, headers: { "Content-Type": "text/plain" } });
  if (!answer.ok) {
    $("job").textContent = "not printed: " + await reason(answer);
    return;
  }
  const id = (await answer.json()).id;
  follow(id);
}

async function follow(id) {
  const answer = await call("/v1/jobs/" + id);
  if (!answer.ok) return;
  const job = await answer.json();
  $("job").textContent = "job " + id + ": " + job.state + " (" + job.printed + " of " + job.total + ")" +
                         (job.reason ? " - " + job.reason : "");
  if (job.state !== "done" && job.state !== "failed") setTimeout(() => follow(id), 1000);
}

$("commands").addEventListener("input", soon);
$("dpi").addEventListener("change", preview);
$("index").addEventListener("change", preview);
$("use-token").onclick = () => {
  token = $("token").value;
  sessionStorage.setItem("orvante-token", token);
  $("token-row").style.display = "none";
  preview();
  printers();
};
preview();
printers();
setInterval(printers, 5000);
</script>
</body>
</html>
)PAGE";
  return kPage;
}

}  // namespace orvante::serve
