#!/usr/bin/env bash
# Compares the documents with what they repeat: the README's program, the table of results, the interface's operations, the settings'
# names, the events, and the files that links name.
set -uo pipefail
cd "$(dirname "$0")/../.." || exit 1
failures=0

check() { # TITLE EXPECTED FOUND
    diff -u <(printf '%s\n' "$2") <(printf '%s\n' "$3") && return
    printf 'FAILED: %s (- expected, + in the document)\n\n' "$1"
    failures=$((failures + 1))
}

# The first function of the example, with its includes, is what the README shows.
check 'README.md: the program' "$(sed '/^int main/,$d' Docs/Examples/LogInAndDownload.cpp | sed '$d')" \
    "$(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d')"

# Rows {code, "name", "text"} become | code | name | text |; clang-format may have broken a row.
rows() {
    sed -n "/ $1\[\] = {/,/^};/p" Includes/QuendraHttp/ResultMeanings.h | tr '\n' ' ' | sed 's/", *"/", "/g; s/}, *{/},\n{/g' |
        sed -nE 's/^.*\{([0-9A-Fx]+), *"([^"]*)", *"([^"]*)"\}.*$/| \1 | \2 | \3 |/p' | sed 's/ |  | / | | /'
}
section() { sed -n "/^## $1/,/^## /p" Docs/ResultCodes.md | grep -E '^\| (0x)?[0-9]'; }
check 'Docs/ResultCodes.md: codes' "$(rows kMeanings)" "$(section Codes)"
check 'Docs/ResultCodes.md: refusals' "$(rows kServerErrors | sed 's/ | | / | /')" "$(section Refusals)"
check 'Docs/ResultCodes.md: HTTP statuses' "$(rows kHttpStatuses | sed 's/ | | / | /')" "$(section HTTP)"

check 'Docs/Rest.md: the operations in the order of their slots' \
    "$(sed -nE '/^class IQuendraHttpAPI/,/^};/ s/^    (\[\[nodiscard\]\] )?virtual [a-zA-Z:_0-9]+ ([A-Za-z0-9]+)\(.*$/\2/p' Includes/QuendraHttp/QuendraHttp.h)" \
    "$(sed -nE 's/^\| [0-9]+ \| `([A-Za-z0-9]+)`.*$/\1/p' Docs/Rest.md)"

check 'Docs/Settings.md: the names' \
    "$(grep -rhoE 'L"(HTTP[A-Za-z]+Timeout|UploadExpiry|Offline[A-Za-z]+)"' QuendraHttp | tr -d 'L"' | sort -u)" \
    "$(sed -nE 's/^\| `([A-Za-z]+)` \|.*$/\1/p' Docs/Settings.md | sort -u)"

events() { # id, level, opcode, task, keyword of each descriptor of version 0 and channel 16
    sed -nE 's/^inline constexpr .* EVT_[A-Z_]+\{([^,]+), 0, 16, ([0-9]+), ([0-9]+), ([0-9]+), (0x[0-9]+)\};$/\1 \2 \3 \4 \5/p' \
        Libraries/Includes/Tracing.h | while read -r id rest; do
        [[ $id != Eventing::* ]] || id=$(sed -nE "s/^.* ${id#Eventing::} = ([0-9]+);.*$/\1/p" Eventing/Eventing.h)
        echo "$id $rest"
    done | sort
}
check 'Docs/Tracing.md: the events' "$(events)" \
    "$(sed -nE 's/^\| [a-z]+ \| ([0-9]+) \| ([0-9]+) \| ([0-9]+) \| ([0-9]+) \| (0x[0-9]+) \|$/\1 \2 \3 \4 \5/p' Docs/Tracing.md)"

for document in README.md CONTRIBUTING.md CHANGELOG.md Docs/*.md; do
    missing=$(grep -oE '\]\([^)#:]+[)#]' "$document" | tr -d '])(#' | sort -u |
        while read -r link; do [ -e "$(dirname "$document")/$link" ] || echo "$link"; done)
    check "$document: links" '' "$missing"
done
exit $((failures > 0))
