#!/usr/bin/env bash
# Publishes a release for the updater in a directory that a web server serves (see nginx.conf).
# Needs bash (3.2 will do), perl and no options of GNU tools: it is written for Linux and macOS.
set -euo pipefail
umask 022

usage() {
  cat <<'TEXT'
usage: publish.sh [-r] [--changelog FILE] [--accept PATTERN]... NAME VERSION TREE DEST
       publish.sh --rollback VERSION DEST

Copies TREE to DEST/releases/VERSION, describes it there as VERSION of the program NAME, and then
points the link DEST/current, which the web server serves, to it. TREE is not changed.
  -r                  mark the update as required
  --changelog FILE    release notes for the users, as UTF-8 text
  --accept PATTERN    ignore lint findings for paths that match ("*" is any text)
  --rollback VERSION  point DEST/current to VERSION, which was published before
Environment:
  UPDATER             describes the release (default: updater)
  UPDATER_RELEASE     lints TREE first, if it is installed (default: updater-release)
TEXT
}

die() { printf 'publish.sh: %s\n' "$*" >&2 && exit 1; }

# Renaming replaces the old link in one step: at every moment there is a release to serve.
switch_to() {
  ln -sfn "releases/$1" "$dest/.current.$$"
  perl -e 'rename $ARGV[0], $ARGV[1] or die "$!\n"' "$dest/.current.$$" "$dest/current"
  echo "$dest/current leads to $1"
}

options=() accepted=() rollback=''
while [ $# -gt 0 ]; do
  case $1 in
    -r) options+=(-r) ;;
    --changelog)
      [ -f "${2-}" ] || die "there is no changelog '${2-}' (name a text file after --changelog)"
      options+=("$1" "$2")
      shift
      ;;
    --accept)
      [ -n "${2-}" ] || die "--accept needs a pattern (is a variable empty?)"
      accepted+=("$1" "$2")
      shift
      ;;
    --rollback) rollback=yes ;;
    *) break ;;
  esac
  shift
done
case $rollback$# in
  yes2) version=$1 dest=$2 ;;
  4) name=$1 version=$2 tree=$3 dest=$4 ;;
  *) usage >&2 && exit 2 ;;
esac
case $version in
  '' | .* | */*)
    die "'$version' cannot be the name of a directory (use a version without / or a dot at its start)"
    ;;
esac
release=$dest/releases/$version

if [ -n "$rollback" ]; then
  [ -f "$release/index.txt" ] || die "there is no release $release (see DEST/releases)"
  switch_to "$version"
  exit
fi

[ -d "$tree" ] || die "there is no tree $tree (the order is NAME VERSION TREE DEST)"
[ ! -e "$tree/index.txt" ] \
  || die "$tree/index.txt would be listed as a file of the release (delete it)"
[ ! -e "$release" ] \
  || die "$release is there, and a published release does not change (use a new version or --rollback)"
lint=${UPDATER_RELEASE:-updater-release}
if command -v "$lint" >/dev/null; then
  status=0
  "$lint" lint --name "$name" ${accepted[@]+"${accepted[@]}"} "$tree" || status=$?
  [ $status -ne 1 ] || die "$tree has findings that are not accepted (fix them, or use --accept)"
  [ $status -eq 0 ] || die "lint ended with $status (see its lines above)"
elif [ -n "${UPDATER_RELEASE-}" ] || [ ${#accepted[@]} -gt 0 ]; then
  die "there is no linting tool $lint (put it on the PATH, or set UPDATER_RELEASE)"
else
  echo "publish.sh: not linted, because there is no $lint on the PATH" >&2
fi

# The new release is completed under a hidden name. Its files get the time of the publication, because
# web servers and caches recognise a changed file by its time, and a reproducible build gives every
# file the same one.
mkdir -p "$dest/releases"
new=$(mktemp -d "$dest/releases/.new.XXXXXX")
trap 'rm -rf "$new"' EXIT
cp -RL "$tree/." "$new"
diff -r "$tree" "$new"
chmod -R u+w,a+rX "$new"
"${UPDATER:-updater}" -b -n "$name" -d "$new" -v "$version" ${options[@]+"${options[@]}"} \
  || die "the updater cannot describe $tree (is updater on the PATH, or its path in UPDATER?)"
mv "$new" "$release"
switch_to "$version"
