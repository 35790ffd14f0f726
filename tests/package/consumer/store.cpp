// Checks an installed store in another program: it opens, keeps a draft and finds it again, with
// `wait`.
#include <VexIMLib/Async/Future.h>
#include <VexIMLib/Store/VXIMMessageStore.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const VXIMConversationId bob{VXIMConversationKindFriend, "bob"};
    for (int start = 0; start < 2; ++start) {
        const auto store = vexim::wait(vexim::call(
            &VXIMMessageStore::open,
            VXIMMessageStoreOptions{
                .path = argv[1], .userId = "alice", .service = "https://im.vexim.example"}));
        if (start == 0) {
            vexim::wait(vexim::call(&VXIMMessageStore::setDraft, store, bob, "Dear Bob"));
        } else {
            const auto found =
                vexim::wait(vexim::call(&VXIMMessageStore::conversation, store, bob));
            std::printf("store: %s\n", found ? found->draft.c_str() : "nothing");
            if (!found || found->draft != "Dear Bob") return 1;
        }
        vexim::wait(vexim::call(&VXIMMessageStore::close, store));
    }
    return 0;
}
