// The fixed parts of the page: its head, and how it looks on screens, light and dark, and on paper.
#pragma once

namespace tovrek::inspect {

// Takes the title and the style.
inline constexpr const char* kPageHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>{}</title>
<link rel="icon" href="data:,">
<style>{}</style>
</head>
<body>
)";

inline constexpr const char* kPageStyle = R"(
:root { --paper: #fff; --ink: #1b1f24; --faint: #5b6570; --line: #d4d9df; --card: #f6f7f9;
  --error: #b3261e; --warning: #8a5a00; --sound: #1a6b33; --added: #e2f3e6; --removed: #fbe6e4; }
@media (prefers-color-scheme: dark) {
  :root { --paper: #14171a; --ink: #e6e8eb; --faint: #a2abb5; --line: #3a4149; --card: #1d2126;
    --error: #ff8a80; --warning: #f2c46d; --sound: #7fd699; --added: #173a22; --removed: #47201d; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 72rem; padding: 1rem 1.25rem 4rem; background: var(--paper);
  color: var(--ink); font: 16px/1.5 system-ui, "Liberation Sans", sans-serif;
  overflow-wrap: anywhere; }
h1 { font-size: 1.7rem; margin: 0; } h2 { font-size: 1.2rem; } h3 { font-size: 1.1rem; }
header p { color: var(--faint); margin: 0; }
article { border-top: 2px solid var(--line); margin-top: 1.5rem; }
.inline { display: inline; font-size: 1rem; }
a { color: inherit; } a:focus-visible, summary:focus-visible { outline: 3px solid var(--faint);
  outline-offset: 2px; }
.verdict { border-left: .4rem solid; padding: .5rem .8rem; background: var(--card); }
.error { border-color: var(--error); } .warning { border-color: var(--warning); }
.sound { border-color: var(--sound); } .note { border-color: var(--faint); }
.findings { list-style: none; padding: 0; }
.findings li { border-left: .25rem solid var(--line); margin: .6rem 0; padding: .1rem .8rem; }
.findings li.error { border-color: var(--error); }
.findings li.warning { border-color: var(--warning); }
.findings li.error strong { color: var(--error); }
.findings li.warning strong { color: var(--warning); }
.findings p { margin: .2rem 0; } .findings p + p { color: var(--faint); }
details { border: 1px solid var(--line); border-radius: .4rem; margin: .5rem 0; padding: .3rem .8rem; }
summary { cursor: pointer; font-weight: 600; }
dl { display: grid; grid-template-columns: minmax(6rem, 11rem) 1fr; gap: .1rem 1rem; margin: .5rem 0; }
dt { color: var(--faint); grid-column: 1; } dd { margin: 0; grid-column: 2; }
table { border-collapse: collapse; width: 100%; margin: .5rem 0; }
th, td { text-align: left; vertical-align: top; padding: .25rem .6rem; border-bottom: 1px solid var(--line); }
.timeline th, .timeline td:nth-child(-n+2) { white-space: nowrap; }
.timeline td:last-child { width: 35%; } .bar { height: .8rem; min-width: 2px; background: var(--sound); }
tr.warning .bar { background: var(--warning); } tr.error .bar { background: var(--error); }
.diff th[scope=row] { font-weight: 400; width: 34%; } .diff td { width: 33%; }
del { background: var(--removed); text-decoration: none; }
ins { background: var(--added); text-decoration: none; }
.icons { display: flex; flex-wrap: wrap; gap: 1rem; } figure { margin: 0; }
figcaption { color: var(--faint); font-size: .85rem; }
@media (max-width: 40rem) { dl { display: block; } dd { margin-left: 1rem; } }
@media print { body { max-width: none; font-size: 10pt; } details { border: 0; padding: 0; }
  article { break-before: auto; } li, tr, figure { break-inside: avoid; } }
)";

}  // namespace tovrek::inspect
