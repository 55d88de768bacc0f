// Every record class of the record library, and the type manager.
#pragma once

#include "records/AccountRecords.h"
#include "records/Enums.h"
#include "records/FeeRecords.h"
#include "records/IData.h"
#include "records/MarketRecords.h"
#include "records/TradeRecords.h"
#include "records/TypeManager.h"
