# For Doxygen: the two declarations inside QUENDRA_OVERLOAD_PAIR(...) as declarations of their own, so that each has its comment.
s/QUENDRA_OVERLOAD_PAIR($//
s/= 0,$/= 0;/
s/= 0);$/= 0;/
# Doxygen knows no links to a heading of the same document.
s/\[\([^]]*\)\](#[a-z-]*)/\1/g
# The examples lie beside the pages.
s/](\(Docs\/\)\{0,1\}Examples\//](/g
