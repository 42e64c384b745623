#!/usr/bin/env bash
# The core (util, errors, host interfaces, lang, criterion, fzy) must include neither Qt nor GDAL.
set -euo pipefail
cd "$(dirname "$0")/.."
hits=$(git ls-files -- 'util/*' 'errors/*' 'host/api/*' 'lang/*' 'criterion/*' 'fzy/*' |
       grep -E '\.(h|cpp)$' |
       xargs -r grep -n -E '#include *[<"](Q[A-Za-z]+|qt[a-z]*/|gdal|ogr|cpl_)' || true)
if [ -n "$hits" ]; then
    echo "Core sources include Qt or GDAL headers:"
    echo "$hits"
    exit 1
fi
# Also check the clang-format rules.
if command -v clang-format >/dev/null; then
    bad=$(git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run 2>&1 | grep -c 'warning:' || true)
    if [ "$bad" != "0" ]; then
        echo "clang-format: $bad lines need formatting (make format)"
        git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run 2>&1 | head -20
        exit 1
    fi
fi
echo "layers and format: ok"
