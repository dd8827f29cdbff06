#include "Support/LibraryTest.h"

#include "KRCB/LoginDataStore.h"
#include "KRClient/KRClient.h"

namespace krtest {

void LibraryTest::SetUp() {
    ZR::logger.AddSink(&log);
    ZR::PagedArray<ZR::UniString, 8> args;
    args.Add(ZR::UniString("BaseFolder=" + BaseFolder()));
    KRC::InitKRClient(args);
    KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().ResetForTesting();
    KRCB::LoginDataStore::ConnectionStatusStore::GetInstance().Clear();
    KRCB::LoginDataStore::ActiveConnection::GetInstance().Clear();
}

void LibraryTest::TearDown() {
    KRC::CloseKRClient();
    KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().ResetForTesting();
    ZR::logger.RemoveSink(&log);
}

}  // namespace krtest
