# Sourced by fetch-deps and fetch-peers, behind common.sh: packages of the distribution, unpacked into the folder `dest`.
#
# The machine's own apt configuration says where they are, and apt checks their signatures. Needs no root: indexes and
# downloads live in a temporary folder, the system's lists stay untouched.
# shellcheck shell=bash

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
etc=${KIV_APT_ETC:-/etc/apt} # another folder only for trying out foreign configurations

# shellcheck disable=SC1091
codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
[ -n "$codename" ] || die "/etc/os-release names no release of the distribution"

# Of the entries for this release's main archive, the same entries for sources; third-party archives and the small
# update suites fall out, so that one release of the distribution means one version of each dependency. With another
# RELEASE they ask the same mirrors for that one. KIND is deb-src, or deb for built packages.
entry_lines() { # RELEASE KIND FILE: one-line style
    awk -v codename="$codename" -v release="$1" -v kind="$2" '
        $1 == "deb" || $1 == "deb-src" {
            options = ""
            i = 2
            if ($i ~ /^\[/) {
                while ($i !~ /\]$/ && i < NF) options = options " " $(i++)
                options = options " " $(i++)
            }
            uri = $i; suite = $(i + 1)
            if (uri ~ /^cdrom:/ || (suite != codename && suite !~ /^(old)?stable$/)) next
            if (release != codename) suite = release
            for (c = i + 2; c <= NF; ++c)
                if ($c == "main") { print kind options, uri, suite, "main"; break }
        }' "$3" | sort -u
}

entry_stanzas() { # RELEASE KIND FILE: deb822 style: a stanza ends at an empty line
    awk -v codename="$codename" -v release="$1" -v kind="$2" '
        function flush_stanza(    i, n, words, suites, wanted, field, kept) {
            n = split(value["suites"], words, /[ \t\n]+/)
            for (i = 1; i <= n; ++i)
                if (words[i] == codename || words[i] ~ /^(old)?stable$/) suites = suites " " words[i]
            wanted = suites != "" && (" " value["components"] " ") ~ /[ \t\n]main[ \t\n]/ && value["types"] != ""
            if (release != codename) suites = " " release
            if (wanted) {
                print "Types: " kind "\nSuites:" suites "\nComponents: main"
                for (i = 1; i <= count; ++i) printf "%s", kept_text[i]
                print ""
            }
            delete value; delete kept_text
            count = 0; field = ""
        }
        /^#/ { next }
        /^[ \t]*$/ { flush_stanza(); current = ""; next }
        /^[ \t]/ {
            if (current ~ /^(types|suites|components)$/) value[current] = value[current] " " $0
            else kept_text[count] = kept_text[count] $0 "\n"
            next
        }
        {
            current = tolower(substr($0, 1, index($0, ":") - 1))
            if (current ~ /^(types|suites|components)$/) value[current] = substr($0, index($0, ":") + 1)
            else kept_text[++count] = $0 "\n"
        }
        END { flush_stanza() }' "$3"
}

shopt -s nullglob
# What follows is fetched from that release; each has lists of its own, so none sees another's versions.
use_release() { # NAME [KIND]
    local list kind=${2:-deb-src}
    apt=$work/$1
    mkdir -p "$apt/sources.d" "$apt/lists/partial" "$apt/cache/archives/partial" "$work/download"
    : >"$apt/sources.list"
    for list in "$etc"/sources.list "$etc"/sources.list.d/*.list; do
        [ -r "$list" ] && entry_lines "$1" "$kind" "$list" >>"$apt/sources.list"
    done
    for list in "$etc"/sources.list.d/*.sources; do
        entry_stanzas "$1" "$kind" "$list" >"$apt/sources.d/$(basename "$list")"
    done
    find "$apt/sources.d" -empty -type f -delete
    [ -s "$apt/sources.list" ] || [ -n "$(ls "$apt/sources.d")" ] ||
        die "no entry of $etc names the main archive of \"$codename\""
    private_apt update || die "apt could not read the indexes of \"$1\""
}

private_apt() {
    apt-get -qq -o Dir::Etc::sourcelist="$apt/sources.list" -o Dir::Etc::sourceparts="$apt/sources.d" \
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" -o APT::Sandbox::User=root \
        -o APT::Get::List-Cleanup=false -o Acquire::Languages=none "$@"
}

fetch() { # PACKAGE NAME [MEMBERS STRIP]: the upstream tarball of a source package; of its members only MEMBERS
    local members=${3:-'*'} strip=${4:-1} tarball
    mkdir -p "$work/download/$1" "$work/tree/$2"
    (cd "$work/download/$1" && private_apt --tar-only --download-only source "$1" >/dev/null) ||
        die "the source package $1 could not be fetched"
    tarball=$(find "$work/download/$1" -name '*.orig.tar.*' ! -name '*.asc' | head -n 1)
    [ -n "$tarball" ] || die "the source package $1 has no upstream tarball"
    tar -xf "$tarball" -C "$work/tree/$2" --wildcards --strip-components="$strip" "$members"
    rm -rf "${dest:?}/$2"
    mv "$work/tree/$2" "$dest/$2"
    echo "fetched $2 ($(basename "$tarball"))"
}

# What the distribution changed in the tree NAME. All of it applies, or the tree is gone.
patch_tree() { # PACKAGE NAME
    local package=$work/download/$1 archive name count=0
    (cd "$package" && private_apt --diff-only --download-only source "$1" >/dev/null) ||
        die "the patches of the source package $1 could not be fetched"
    archive=$(find "$package" -name '*.debian.tar.*' ! -name '*.asc' | head -n 1)
    [ -n "$archive" ] || die "the source package $1 has no patches"
    tar -xf "$archive" -C "$package" debian/patches
    while read -r name _; do
        case $name in '' | '#'*) continue ;; esac
        patch -p1 --forward --batch --silent -d "$dest/$2" <"$package/debian/patches/$name" || {
            rm -rf "${dest:?}/$2"
            die "\"$name\" does not apply to $2"
        }
        count=$((count + 1))
    done <"$package/debian/patches/series"
    [ "$count" -gt 0 ] || die "the source package $1 lists no patches"
    echo "patched $2 ($count patches of $(basename "$archive"))"
}

unpack_built() { # PACKAGE: the files of a built package
    (cd "$work/download" && private_apt download "$1" >/dev/null) || die "the package $1 could not be fetched"
    dpkg-deb -x "$work/download/$1"_*.deb "$dest"
    echo "fetched $1 ($(cd "$work/download" && echo "$1"_*.deb))"
}
