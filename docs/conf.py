# SPDX-License-Identifier: LGPL-2.1-or-later
"""How Sphinx makes HTML of these pages: `meson configure build -Ddocs=true`."""

project = "vantrel"
copyright = "2026, vantrel developers"
extensions = ["myst_parser"]
source_suffix = {".md": "markdown"}
exclude_patterns = ["man"]
# "demux-type" is a name, and its quotation marks are the programming kind.
smartquotes = False
highlight_language = "none"
# Headings that other pages may point to.
myst_heading_anchors = 3
html_theme = "alabaster"
html_static_path = ["static"]
html_css_files = ["style.css"]
html_theme_options = {
    "description": "Transport-stream demultiplexer of a television receiver",
    "page_width": "1180px",
    "sidebar_width": "230px",
    "fixed_sidebar": True,
}
html_show_sourcelink = False
