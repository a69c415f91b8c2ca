#!/usr/bin/env bash
# Makes the Debian package from a build folder, unpacks it into a temporary
# root with dpkg-deb -x (nothing is installed, no root is needed) and uses it
# as a user would: the files are in their places, the manual pages render
# without warnings, the desktop entry names the installed icon and program,
# and the unpacked vellira-batch, driven by the unpacked completion's mode
# texts, splits a sample into the expected files.
#
#   package_test.sh BUILD_DIR CPACK MAKE_SAMPLE GUI(0|1)
#
# Exits 77 (skipped) when the package tools are not installed.
set -euo pipefail
build=$1 cpack=$2 make_sample=$3 gui=$4

for tool in "$cpack" dpkg-deb; do
    if ! command -v "$tool" >/dev/null; then
        echo "skipped: $tool is not installed"
        exit 77
    fi
done
# Without dpkg-shlibdeps (package dpkg-dev) or file, which CPack needs to
# find Depends, the package is made without them and they are not checked.
shlibdeps=ON
for tool in dpkg-shlibdeps file; do
    if ! command -v $tool >/dev/null; then
        echo "$tool is not installed (packages dpkg-dev, file): Depends are not checked"
        shlibdeps=OFF
    fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# gzip rather than the package's xz: the same contents, made in seconds.
if ! "$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$work/package" \
    -D CPACK_DEBIAN_COMPRESSION_TYPE=gzip -D CPACK_DEBIAN_PACKAGE_SHLIBDEPS=$shlibdeps >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log"
    echo "FAILED: cpack"
    exit 1
fi
debs=("$work"/package/*.deb)
if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
    echo "FAILED: no single .deb in ${debs[*]}"
    exit 1
fi
deb=${debs[0]}
echo "package: $(basename "$deb")"

[ "$(dpkg-deb -f "$deb" Package)" = vellira-batch ] || fail "package name $(dpkg-deb -f "$deb" Package)"
if [ $shlibdeps = ON ]; then
    depends=$(dpkg-deb -f "$deb" Depends)
    echo "Depends: $depends"
    wanted=(libc6 libstdc++6 libcurl4 libutf8proc)
    [ "$gui" = 1 ] && wanted+=(libqt6widgets6)
    for library in "${wanted[@]}"; do
        [[ $depends == *"$library"* ]] || fail "Depends lacks $library"
    done
    [[ $depends != *mupdf* ]] || fail "Depends names MuPDF, which is linked in"
fi

root=$work/root
dpkg-deb -x "$deb" "$root" || { echo "FAILED: dpkg-deb -x"; exit 1; }
usr=$root/usr

# Every file in its place.
programs=(vellira-batch)
pages=(vellira-batch)
[ "$gui" = 1 ] && programs+=(vellira-batch-gui) && pages+=(vellira-batch-gui)
for program in "${programs[@]}"; do
    [ -x "$usr/bin/$program" ] || fail "no program usr/bin/$program"
done
for page in "${pages[@]}"; do
    found=("$usr/share/man/man1/$page.1"*)
    file=${found[0]}
    if [ ! -f "$file" ]; then
        fail "no manual page usr/share/man/man1/$page.1"
    elif command -v groff >/dev/null; then
        if ! warnings=$( (zcat -f "$file" | groff -man -Tutf8 -ww -z) 2>&1) || [ -n "$warnings" ]; then
            fail "$page.1 does not render cleanly: $warnings"
        fi
    fi
done
completion=$usr/share/bash-completion/completions/vellira-batch
[ -f "$completion" ] || fail "no completion usr/share/bash-completion/completions/vellira-batch"
if [ "$gui" = 1 ]; then
    desktop=$usr/share/applications/vellira-batch-gui.desktop
    if [ -f "$desktop" ]; then
        grep -qx 'Exec=vellira-batch-gui %f' "$desktop" || fail "the desktop entry does not run vellira-batch-gui %f"
        grep -q '^MimeType=.*application/pdf' "$desktop" || fail "the desktop entry does not take application/pdf"
        icon=$(sed -n 's/^Icon=//p' "$desktop")
        [ -f "$usr/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no icon '$icon' for the desktop entry"
        if command -v desktop-file-validate >/dev/null; then
            desktop-file-validate "$desktop" || fail "desktop-file-validate"
        fi
    else
        fail "no desktop entry usr/share/applications/vellira-batch-gui.desktop"
    fi
fi

# The unpacked program runs with the libraries the system has.
version=$("$usr/bin/vellira-batch" --version 2>&1) || fail "vellira-batch --version: $version"
[[ $version == *vellira-batch* ]] || fail "vellira-batch --version says: $version"
# The mail libraries are a module loaded from its installed place.
[[ $version == *"libcurl "[0-9]* ]] || fail "the installed program finds no mail transport: $version"
echo "$version" | head -n 1

# Completes a command line of words, the last being the one at the cursor,
# as bash calls a completion: the line split at "=", and nothing to complete
# right after one; sets COMPREPLY.
complete_words() {
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMP_LINE="$*"
    COMP_POINT=${#COMP_LINE}
    COMPREPLY=()
    local cur=${COMP_WORDS[COMP_CWORD]}
    [ "$cur" = = ] && cur=""
    set +e
    _vellira_batch vellira-batch "$cur" "${COMP_WORDS[COMP_CWORD - 1]}"
    set -e
}
# The one word a completion gives, as the shell reads it.
completed_word() {
    complete_words "$@"
    if [ ${#COMPREPLY[@]} -ne 1 ]; then
        fail "completing '$*' gives ${#COMPREPLY[@]} words: ${COMPREPLY[*]}"
        return 1
    fi
    eval "completed=${COMPREPLY[0]}"
}

completed="" extract_mode="" naming_mode=""
if [ -f "$completion" ]; then
    PATH=$usr/bin:$PATH
    # shellcheck source=/dev/null
    source "$completion"
    completed_word vellira-batch spl && { [ "$completed" = split ] || fail "command completed as '$completed'"; }
    completed_word vellira-batch split --set PAGEEX &&
        { [ "$completed" = PAGEEXTRACT= ] || fail "key completed as '$completed'"; }
    completed_word vellira-batch split --set PAGEEXTRACT = Matched && extract_mode=$completed
    completed_word vellira-batch split --set EXTRACT = Page\\\ start- && naming_mode=$completed
    completed_word vellira-batch split --set EXTRACT = USE\\\ \\\'use\\\ as\\\ filename\\\ name\\\ after\\\ text\\\'\\\ -\\\ take\\\ rest\\\ of\\\ line\\\ + &&
        { [ "$completed" = "USE 'use as filename name after text' - take rest of line + 1st line next page" ] ||
            fail "naming mode with quotes completed as '$completed'"; }
    complete_words vellira-batch split --
    for option in --params --set --list --yes; do
        [[ " ${COMPREPLY[*]} " == *" $option "* ]] || fail "split's options lack $option: ${COMPREPLY[*]}"
    done
    complete_words vellira-batch positions --
    [ "${COMPREPLY[*]}" = "--help --page" ] || fail "positions' options are: ${COMPREPLY[*]}"
fi

# A split with the modes the completion gave: a file for each page holding
# "account:", named by its page numbers.
sample=$work/sample.pdf
"$make_sample" "$sample" --pages 10 --every 5 >/dev/null
export XDG_CONFIG_HOME=$work/config TMPDIR=$work
status=0
"$usr/bin/vellira-batch" split --set "OUTPUTDIR=$work/out" --set "PAGEEXTRACT=$extract_mode" \
    --set "EXTRACT=$naming_mode" "$sample" >"$work/stdout" 2>"$work/stderr" || status=$?
[ $status -eq 0 ] || fail "split exits $status: $(cat "$work/stderr")"
[ "$(cat "$work/stdout")" = "Done	$sample" ] || fail "split prints: $(cat "$work/stdout")"
written=""
[ -d "$work/out" ] && written=$(cd "$work/out" && echo *)
[ "$written" = "extract_1-1.pdf extract_6-6.pdf" ] || fail "split wrote: $written"
for piece in 1-1:100000 6-6:100001; do
    file=$work/out/extract_${piece%:*}.pdf
    [ -f "$file" ] || continue
    "$usr/bin/vellira-batch" positions "$file" --page 1 | grep -q "${piece#*:}" ||
        fail "$(basename "$file") does not hold account ${piece#*:}"
    ! "$usr/bin/vellira-batch" positions "$file" --page 2 >/dev/null 2>&1 || fail "$(basename "$file") has a second page"
done

if [ $failures -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "the package holds every file, and its vellira-batch splits"
