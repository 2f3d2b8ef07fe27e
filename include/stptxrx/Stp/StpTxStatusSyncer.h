#pragma once
// The transmit-side syncers: IntxInfoSyncer (one transmit record into another), TxStatusToTxSyncer (one
// transmit status tree into another) and TxStatusToRxSyncer (the group and port shape of a transmit status
// into a receive status). Include this header to use any of them.
#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/Stp/TxStatusToTxSyncer.h>
