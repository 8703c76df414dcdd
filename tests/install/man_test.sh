#!/bin/sh
# Renders the manual page with every warning on, fails on any, and checks its version.
# Usage: man_test.sh <page> <version>
page=$1 version=$2
command -v groff >/dev/null || { echo "groff is not installed: skipped"; exit 77; }
warnings=$(groff -man -ww -z "$page" 2>&1) && [ -z "$warnings" ] || { echo "groff: $warnings"; exit 1; }
grep -q "^\.TH XPATH 1 .* \"xpath $version\"" "$page" || { echo "$page: no version $version"; exit 1; }
