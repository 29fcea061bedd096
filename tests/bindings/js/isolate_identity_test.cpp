// The binding's template serves the isolate of the first object and no
// other, however the next isolate is placed. A program of its own: the
// first object here is made in an isolate that the test disposes, which
// the shared isolate of the other suites never is.
#include "bindings/js/hostprobe_plugin_js_creator.h"
#include "bindings/js/script_object.h"
#include "tests/bindings/js/js_test_host.h"

#include <gtest/gtest.h>

#include <string>

using velk::testing::js_environment;

namespace {

// An isolate of its own, with the same allocator kind as the environment's.
class own_isolate
{
public:
    own_isolate() : allocator(v8::ArrayBuffer::Allocator::NewDefaultAllocator())
    {
        v8::Isolate::CreateParams params;
        params.array_buffer_allocator = allocator;
        isolate = v8::Isolate::New(params);
    }
    ~own_isolate()
    {
        isolate->Dispose();
        delete allocator;
    }
    own_isolate(const own_isolate&) = delete;
    own_isolate& operator=(const own_isolate&) = delete;

    v8::ArrayBuffer::Allocator* allocator;
    v8::Isolate* isolate;
};

// What the plug-in's context creator says when asked for an object in
// isolate: "" when it made one.
std::string create_in(v8::Isolate* isolate)
{
    v8::Isolate::Scope in(isolate);
    v8::HandleScope handles(isolate);
    velk::iref<xt::hostprobe_plugin> made;
    velk::iref<velk::stubsmith_interface> host(new xt::testing::host_interface_stub);
    velk::js::script_source none;
    auto create = reinterpret_cast<xt::js::creator_js_fn>(velk::testing::creator(xt::js::creator_js_key.ptr()));
    try {
        create(made, none, host, "o", nullptr);
    } catch (const std::exception& e) {
        return e.what();
    }
    return made ? "" : "nothing made, and nothing thrown";
}

} // namespace

TEST(IsolateIdentity, IsAMarkThatStaysWithTheIsolate)
{
    own_isolate a;
    uintptr_t first = velk::js::isolate_identity(a.isolate);
    EXPECT_NE(first, 0u);
    EXPECT_EQ(velk::js::isolate_identity(a.isolate), first);
    EXPECT_NE(velk::js::isolate_identity(js_environment::isolate()), first);
}

TEST(IsolateIdentity, ANewIsolateAtADisposedOnesAddressIsRefused)
{
    v8::Isolate* first_address = nullptr;
    {
        own_isolate first;
        first_address = first.isolate;
        ASSERT_EQ(create_in(first.isolate), ""); // the template now serves this isolate
    }
    // The allocator gives the new isolate the memory of the old one; a few
    // tries are enough to land on the same address, where the template's
    // handle would have been read from the wrong isolate.
    bool reused = false;
    for (int i = 0; i < 8 && !reused; ++i) {
        own_isolate next;
        reused = next.isolate == first_address;
        std::string failure = create_in(next.isolate);
        EXPECT_NE(failure.find("objects belong to another isolate"), std::string::npos) << failure;
    }
    // The isolate that lived all along is another one as well.
    std::string failure = create_in(js_environment::isolate());
    EXPECT_NE(failure.find("objects belong to another isolate"), std::string::npos) << failure;
    if (!reused)
        GTEST_SKIP() << "no new isolate came at the disposed one's address (AddressSanitizer keeps "
                        "freed memory aside): only isolates at other addresses were tried";
}
