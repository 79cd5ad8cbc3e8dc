// Makes the compiler lay out the virtual tables of the public interfaces: CheckLayout.cmake reads what it says of them.

#include "Attributes.h"

#include "QuendraHttp/QuendraHttp.h"
#include "QuendraHttp/Transport.h"

// The constructor of a derived class needs the table of its base.
template <typename Interface> struct Probe : Interface
{
    Probe() {}
};

template struct Probe<IQuendraHttpAPI>;
template struct Probe<IWinHttpFactory>;
template struct Probe<IWinHttpSession>;
template struct Probe<IWinHttpConnection>;
template struct Probe<IWinHttpRequest>;
template struct Probe<IProgressCallback>;
template struct Probe<IAttributes>;
template struct Probe<IServerAttributes>;
