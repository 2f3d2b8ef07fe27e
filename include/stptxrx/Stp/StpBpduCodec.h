#pragma once
// BPDUs of every kind in both directions: decoding and validating a received frame into a record
// (generateIntxInfoFromPkt, BpduDecode.h), encoding a record into a Configuration, TCN, RST or MST BPDU
// frame, IEEE or PVST+ (generateBpduFromIntxInfo, generatePvstBpduFromIntxInfo, BpduEncode.h), and the
// receive path that files a received BPDU into a port's receive status (receiveBpdu, BpduReceiver,
// BpduReceiver.h). Both directions walk one field table inside the library, so a field is mapped once.
#include <stptxrx/Stp/BpduDecode.h>
#include <stptxrx/Stp/BpduEncode.h>
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/Stp/BpduReceiver.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/BpduVerdict.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/StpTypes.h>
