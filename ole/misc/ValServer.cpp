#include <ole/misc/ValServer.h>

#include <ole/runtime/Log.h>

// Start-up constants: the value messages are interned when the library loads, in this order.
const int ValServerBase::valChangedMsgType_ = NotifyMsgTypeDictionary::instance().intern("ValChange");
const int ValServerBase::preValChangedMsgType_ = NotifyMsgTypeDictionary::instance().intern("PreValChange");
const int ValServerBase::startBatchMsgType_ = NotifyMsgTypeDictionary::instance().intern("StartBatch");
const int ValServerBase::endBatchMsgType_ = NotifyMsgTypeDictionary::instance().intern("EndBatch");

ValServerBase::~ValServerBase() = default;

void ValServerBase::traceChange(int type, unsigned clients) const {
    DebugOut("value server %p: %s to %u client(s)\n", static_cast<const void*>(this),
             type == valChangedMsgType_ ? "ValChange" : "PreValChange", clients);
}

// ---- the last constructed server, per thread -----------------------------------------------------------

static thread_local ValServerBase* lastValServer = nullptr;

LastValServer::LastValServer(ValServerBase* server) : server_(server) {
    lastValServer = server;
}

LastValServer::~LastValServer() {
    if (lastValServer == server_) lastValServer = nullptr;
}

ValServerBase* LastValServer::getLastValServer() {
    ValServerBase* server = lastValServer;
    lastValServer = nullptr;
    return server;
}

// ---- multiple-server clients ---------------------------------------------------------------------------

ValClientBase::~ValClientBase() {
    deleteReceivers();
}

void ValClientBase::valChangedNtfy(ValServerBase*) {}
void ValClientBase::valPreChangedNtfy(ValServerBase*) {}

void ValClientBase::deleteReceivers() {
    while (DLListRec* rec = receivers_.popFront()) delete rec;
}
