// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

namespace report {

inline constexpr const char kStyle[] = R"css(
:root{color-scheme:light dark;--page:#f4f5f7;--card:#fff;--ink:#1a1f29;--soft:#5a6373;--line:#dde1e8;
--accent:#1f5fd0;--good:#147a3c;--good-bg:#e2f4e8;--bad:#b3261e;--bad-bg:#fbe4e2;--limit:#c2410c;
--c0:#3266ad;--c1:#e08a2e;--c2:#3f9a5f;--c3:#c0504d;--c4:#7a62b3;--c5:#2aa0b5;--c6:#d1699f;--c7:#9a8b2f;
--c8:#5f7f9e;--c9:#a9714b;--rest:#9aa3b1;--null:#d6dae1}
@media (prefers-color-scheme:dark){:root{--page:#12151b;--card:#1b2029;--ink:#e6e9ef;--soft:#9aa4b5;
--line:#2d3440;--accent:#7fb0ff;--good:#6fd396;--good-bg:#173524;--bad:#ff8f86;--bad-bg:#441d1b;
--limit:#fb923c;--c0:#5b8fd9;--c1:#eaa155;--c2:#5dbb80;--c3:#de7571;--c4:#9d87d6;--c5:#4fc0d3;
--c6:#e58cbb;--c7:#bdae4c;--c8:#86a5c3;--c9:#c89069;--rest:#69727f;--null:#39414d}}
*{box-sizing:border-box}
html{scroll-behavior:smooth;scroll-padding-top:3.5rem}
body{margin:0;background:var(--page);color:var(--ink);
font:15px/1.5 system-ui,"Segoe UI",Roboto,"Noto Sans","DejaVu Sans",sans-serif;overflow-wrap:break-word}
main{max-width:1240px;margin:0 auto;padding:2rem 1.25rem 4rem}
h1{font-size:1.9rem;line-height:1.2;margin:.1rem 0 .3rem;overflow-wrap:anywhere}
h2{font-size:1.3rem;margin:0 0 .9rem}
h3{font-size:1rem;margin:1.1rem 0 .4rem}
p{margin:.25rem 0 .7rem}
.kind{color:var(--accent);font-weight:600;letter-spacing:.04em;margin:0}
.soft{color:var(--soft)}
.mono{font-family:ui-monospace,"DejaVu Sans Mono",Menlo,Consolas,monospace;font-size:.92em}
.number{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
.card{background:var(--card);border:1px solid var(--line);border-radius:10px}
section{margin-top:2.6rem}
.facts{display:grid;grid-template-columns:repeat(auto-fit,minmax(128px,1fr));gap:.7rem;margin-top:1.1rem}
.fact{padding:.7rem .85rem}
.fact b{display:block;font-size:1.13rem;white-space:nowrap;line-height:1.3;font-variant-numeric:tabular-nums}
.fact span{color:var(--soft);font-size:.86rem}
.fact.good b{color:var(--good)}.fact.bad b{color:var(--bad)}
nav{position:sticky;top:0;z-index:3;display:flex;gap:.2rem 1.2rem;flex-wrap:wrap;margin-top:1.3rem;
padding:.65rem 0;background:var(--page);border-bottom:1px solid var(--line);font-size:.93rem}
a{color:var(--accent);text-decoration:none}a:hover{text-decoration:underline}
.scroll{overflow-x:auto;background:var(--card);border:1px solid var(--line);border-radius:10px}
table{border-collapse:collapse;width:100%;font-size:.91rem}
th,td{padding:.42rem .75rem;text-align:left;vertical-align:top;border-bottom:1px solid var(--line)}
tbody tr:last-child>td{border-bottom:0}
th{font-weight:600;color:var(--soft);white-space:nowrap;font-size:.84rem;cursor:pointer}
th.number{text-align:right}th[data-order=up]::after{content:" ↑"}th[data-order=down]::after{content:" ↓"}
td .scroll{margin:.4rem 0;border-radius:6px}
.services{display:grid;gap:.9rem}
.service{display:grid;grid-template-columns:minmax(0,300px) minmax(0,1fr);gap:1.1rem;padding:1rem}
.service.plain{grid-template-columns:minmax(0,1fr)}
.service h3{margin:0;font-size:1.08rem}
.service .scroll{border:0}
.service td,.service th{padding:.28rem .6rem}
.picture img{display:block;width:100%;height:auto;border-radius:6px}
.no-picture{margin:0;min-height:6rem;height:100%;display:grid;place-items:center;text-align:center;
padding:1rem;border:1px dashed var(--line);border-radius:6px;color:var(--soft);font-size:.88rem}
.checks table{min-width:1070px}
.checks .scroll>table>thead th{cursor:default}
.checks>.scroll>table{table-layout:fixed}
.checks>.scroll>table>thead th:nth-child(1){width:4.3rem}.checks>.scroll>table>thead th:nth-child(3){width:8.6rem}
.checks>.scroll>table>thead th:nth-child(4){width:15rem}
.checks>.scroll>table>thead th:nth-child(n+5){width:10.5rem}
.checks td table{min-width:0}.causes{padding-top:0}
.place{white-space:nowrap;font-variant-numeric:tabular-nums;font-size:.88rem;line-height:1.35}
.place b{font-weight:500}
.reason{font-size:.87rem}
summary{cursor:pointer}
details p{max-width:46rem;margin:.4rem 0}
.pill{display:inline-block;padding:.05rem .6rem;border-radius:99px;font-size:.85rem;white-space:nowrap;
background:var(--line);color:var(--soft)}
.pill.good{background:var(--good-bg);color:var(--good)}
.pill.bad{background:var(--bad-bg);color:var(--bad);font-weight:600}
figure{margin:0;padding:.9rem 1rem 1rem}
figcaption{font-weight:600;font-size:.93rem;margin-bottom:.4rem}
svg{display:block}
.plot{width:100%;height:auto}
.plot text{font-size:12px;fill:var(--soft);font-variant-numeric:tabular-nums}
.plot .limit-name{fill:var(--limit)}
.grid{stroke:var(--line);stroke-width:1}
.axis{stroke:var(--soft);stroke-width:1}
.limit{stroke:var(--limit);stroke-width:1.2;stroke-dasharray:5 4}
.dots{stroke:var(--c0);stroke-width:3.6;stroke-linecap:round;fill:none}
.pairs{display:grid;grid-template-columns:repeat(auto-fit,minmax(min(100%,460px),1fr));gap:.9rem;
margin-top:.9rem}
.spark{width:150px;height:24px}.spark path{fill:none;stroke:var(--c0);stroke-width:1.3}
.strip{width:100%;height:16px;border-radius:3px;background:var(--good-bg)}
.strip path{fill:var(--bad);stroke:var(--bad);stroke-width:1;vector-effect:non-scaling-stroke}
.legend{display:grid;grid-template-columns:repeat(auto-fill,minmax(250px,1fr));gap:.15rem 1rem;margin:.7rem 0 0;
padding:0;list-style:none;font-size:.87rem}
.legend li{padding-left:1.3rem;text-indent:-1.3rem}
.legend i{text-indent:0;display:inline-block;width:.8rem;height:.8rem;border-radius:3px;margin-right:.5rem;vertical-align:-.07rem}
.c0{fill:var(--c0);background:var(--c0)}.c1{fill:var(--c1);background:var(--c1)}
.c2{fill:var(--c2);background:var(--c2)}.c3{fill:var(--c3);background:var(--c3)}
.c4{fill:var(--c4);background:var(--c4)}.c5{fill:var(--c5);background:var(--c5)}
.c6{fill:var(--c6);background:var(--c6)}.c7{fill:var(--c7);background:var(--c7)}
.c8{fill:var(--c8);background:var(--c8)}.c9{fill:var(--c9);background:var(--c9)}
.c-rest{fill:var(--rest);background:var(--rest)}.c-null{fill:var(--null);background:var(--null)}
.area{stroke:var(--card);stroke-width:.6}.area:hover{filter:brightness(1.15)}
.guide{overflow-x:auto;margin-bottom:.9rem}
.hours,.row{position:relative;display:flex;border-bottom:1px solid var(--line)}
.row:last-child{border-bottom:0}
.hours{height:1.9rem;font-size:.84rem;color:var(--soft)}
.hours div{position:absolute;padding:.25rem .5rem;border-left:1px solid var(--line)}
.guide .who{position:sticky;left:0;z-index:2;width:180px;flex:none;padding:.35rem .7rem;background:var(--card);
border-right:1px solid var(--line);font-size:.87rem;font-weight:600;overflow:hidden;text-overflow:ellipsis}
.hours .who{border-left:0;height:100%}
.events{position:relative;flex:1;height:3rem}
.event{position:absolute;top:.2rem;bottom:.2rem;padding:.15rem .45rem;overflow:hidden;border-radius:5px;
background:color-mix(in srgb,var(--c0) 14%,var(--card));border:1px solid color-mix(in srgb,var(--c0) 35%,var(--card));
font-size:.82rem;line-height:1.25;white-space:nowrap}
.event b{display:block;overflow:hidden;text-overflow:ellipsis;font-weight:600}
.event span{color:var(--soft)}
.method{padding:.4rem 1.2rem .8rem;columns:26rem 2;column-gap:2.4rem}.method div{break-inside:avoid}
@media (max-width:720px){.service{grid-template-columns:minmax(0,1fr)}nav{position:static}
.service td,.service th{padding:.28rem .25rem;font-size:.82rem}
figure{overflow-x:auto}.plot{min-width:860px}.pairs .plot{min-width:460px}}
@media print{nav{display:none}section{break-inside:auto}}
)css";

/// Sorts a table by the column whose heading is clicked; not the checks', whose
/// order means something.
inline constexpr const char kScript[] = R"js(
for (const heading of document.querySelectorAll('th')) {
  if (heading.closest('.checks')) continue;
  heading.addEventListener('click', () => {
    const body = heading.closest('table').tBodies[0];
    const down = heading.dataset.order === 'up';
    for (const other of heading.parentNode.children) delete other.dataset.order;
    heading.dataset.order = down ? 'down' : 'up';
    const units = {k: 1e3, M: 1e6};
    const key = row => {
      const text = row.cells[heading.cellIndex].textContent.replace(/\u2009/g, '').trim();
      const number = /^[±]?(0x[0-9A-F]+|[-\d.]+)(?: ([kM])?|$)/.exec(text);
      return number ? Number(number[1]) * (units[number[2]] || 1) : text.toLowerCase();
    };
    const compare = (a, b) => typeof a === typeof b ? (a > b) - (a < b) : typeof a === 'number' ? -1 : 1;
    const rows = [...body.rows].map(row => [key(row), row]);
    rows.sort((a, b) => compare(a[0], b[0]) * (down ? -1 : 1));
    body.append(...rows.map(row => row[1]));
  });
}
)js";

}  // namespace report
