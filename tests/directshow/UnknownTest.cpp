#include <thread>

#include <gtest/gtest.h>

#include "common/ComPtr.h"
#include "directshow/CUnknown.h"
#include "platform/com.h"

namespace kvmpd {
namespace {

class Persistent final : public CUnknown, public IPersist {
  public:
    Persistent(IUnknown* outer, bool* destroyed) : CUnknown(outer), m_destroyed(destroyed) {}
    ~Persistent() override {
        AddRef();  // an object may be handed around while it is destroyed
        Release();
        *m_destroyed = true;
    }
    KV_DECLARE_IUNKNOWN
    HRESULT NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
        if (riid == IID_IPersist) {
            return GetInterface(static_cast<IPersist*>(this), ppv);
        }
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID*) override { return E_NOTIMPL; }

  private:
    bool* const m_destroyed;
};

TEST(Unknown, LastReleaseDestroysOnceEvenWhenTheDestructorUsesTheObject) {
    bool destroyed = false;
    auto* object = new Persistent(nullptr, &destroyed);
    EXPECT_EQ(object->AddRef(), 1u);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

TEST(Unknown, QueryInterfaceAddsAReferenceAndKeepsTheIdentity) {
    bool destroyed = false;
    ComPtr<Persistent> object(new Persistent(nullptr, &destroyed));
    ComPtr<IPersist> persist;
    ASSERT_EQ(object->QueryInterface(IID_IPersist, persist.putVoid()), S_OK);
    ComPtr<IUnknown> fromObject;
    ComPtr<IUnknown> fromInterface;
    ASSERT_EQ(object->QueryInterface(IID_IUnknown, fromObject.putVoid()), S_OK);
    ASSERT_EQ(persist->QueryInterface(IID_IUnknown, fromInterface.putVoid()), S_OK);
    EXPECT_EQ(fromObject.get(), fromInterface.get());
    object.Reset();
    persist.Reset();
    fromObject.Reset();
    EXPECT_FALSE(destroyed);
    fromInterface.Reset();
    EXPECT_TRUE(destroyed);
}

TEST(Unknown, QueryInterfaceForAnUnknownIdNullsTheOutput) {
    bool destroyed = false;
    ComPtr<Persistent> object(new Persistent(nullptr, &destroyed));
    void* output = &destroyed;
    EXPECT_EQ(object->QueryInterface(IID_IPin, &output), E_NOINTERFACE);
    EXPECT_EQ(output, nullptr);
    EXPECT_EQ(object->QueryInterface(IID_IPin, nullptr), E_POINTER);
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(object->QueryInterface(IID_IPersist, nullptr), E_POINTER);
}

TEST(Unknown, AggregatedInterfacesDelegateToTheOuterObject) {
    bool outerGone = false;
    bool innerGone = false;
    ComPtr<Persistent> outer(new Persistent(nullptr, &outerGone));
    auto* inner = new Persistent(outer->NonDelegatingUnknown(), &innerGone);
    IUnknown* own = inner->NonDelegatingUnknown();
    own->AddRef();

    ComPtr<IPersist> innerPersist;
    ASSERT_EQ(own->QueryInterface(IID_IPersist, innerPersist.putVoid()), S_OK);
    ComPtr<IUnknown> identity;
    ASSERT_EQ(innerPersist->QueryInterface(IID_IUnknown, identity.putVoid()), S_OK);
    EXPECT_EQ(identity.get(), outer->NonDelegatingUnknown());
    EXPECT_NE(identity.get(), own);

    identity.Reset();
    innerPersist.Reset();
    EXPECT_EQ(own->Release(), 0u);
    EXPECT_TRUE(innerGone);
    outer.Reset();
    EXPECT_TRUE(outerGone);
}

TEST(Unknown, CountsReferencesOfManyThreads) {
    bool destroyed = false;
    ComPtr<Persistent> object(new Persistent(nullptr, &destroyed));
    auto churn = [&object] {
        for (int i = 0; i < 2000; ++i) {
            ComPtr<Persistent> reference(object.get());
        }
    };
    std::thread one(churn);
    std::thread two(churn);
    one.join();
    two.join();
    EXPECT_FALSE(destroyed);
    object.Reset();
    EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace kvmpd
