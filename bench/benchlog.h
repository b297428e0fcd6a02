// The log proxy that the benchmarks write through.
#pragma once

#include <bundlemgr/bundlemgr.h>
#include <bundlemgr/log.h>

namespace bench {

/// @param mode the output mode of the log from now on
inline NS_BUNDLEMGR1::LogProxy& Log(int mode) {
    NS_BUNDLEMGR1::LogProxy& log = *NS_BUNDLEMGR1::BundleMgr::Instance()->GetLogProxyMgr()->GetLogProxy("Bench");
    log.SetBundleName("bench_bundle");
    log.SetServiceName("BenchSvc");
    log.SetDebugOutputMode(mode);
    return log;
}

}  // namespace bench
