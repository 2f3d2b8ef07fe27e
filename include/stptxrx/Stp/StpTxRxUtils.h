#pragma once
// BPDU frame construction, one header per idea: the trace handle, the priority conversions, the link
// headers, packet allocation, the RST encoder and the agents' decisions. Everything here traces through
// the one handle "StpTxRx". Including this header gives all of them.
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/Stp/RstBpduEncoder.h>
#include <stptxrx/Stp/StpPriority.h>
#include <stptxrx/Stp/StpTxRxDecisions.h>
#include <stptxrx/Stp/StpTxRxPkt.h>
#include <stptxrx/Stp/StpTxRxTrace.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>
