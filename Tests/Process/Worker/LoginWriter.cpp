// A writer of the login data for the kill test:
//   login_writer BASE_FOLDER FIRST
// Saves the token "tok-N" for user anna of https://srv.example, for N = FIRST,
// FIRST + 1, ... until killed, and prints "saved N" after each save.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "KRCB/KRClientBase.h"
#include "KRCB/LoginDataStore.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: login_writer BASE_FOLDER FIRST\n");
        return 2;
    }
    using namespace KRCB::LoginDataStore;
    if (!InitKRClientBase({ZR::UniString(std::string("BaseFolder=") + argv[1])})) return 1;
    const ZR::UniString url("https://srv.example");
    for (long n = std::atol(argv[2]);; ++n) {
        LoginDataStoreCache& cache = LoginDataStoreCache::GetInstance();
        ZR::Ref<LoginDataStore> store = cache.GetLoginDataStoreCopy(OpenForWriting);
        if (!store->ContainsServer(url))
            store->StoreServer(Kerrow::PortalServer::Client::Management::ServerInfo(url, "Srv"),
                               url, ZR::UniString());
        store->AddUser(url, User("anna", ZR::UniString("tok-" + std::to_string(n)), "Anna"));
        cache.SaveToFile(*store);
        std::printf("saved %ld\n", n);
        std::fflush(stdout);
    }
}
