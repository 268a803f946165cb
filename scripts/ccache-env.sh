# Sourced by the build scripts: the compiler cache outside the clone (ccache's own default place), shared by every checkout
# of the project on this machine, so that a fresh clone (as CI makes) builds warm.
# base_dir with hash_dir off makes objects of the same source equal whatever the clone's path.
export CCACHE_DIR="${CCACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/ccache}"
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}"
export CCACHE_NOHASHDIR=1
# Precompiled headers of the tests are cacheable only with these.
export CCACHE_SLOPPINESS="pch_defines,time_macros,include_file_mtime,include_file_ctime"
export CCACHE_MAXSIZE="${CCACHE_MAXSIZE:-8G}"
