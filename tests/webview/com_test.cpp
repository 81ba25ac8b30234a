#include "webview/com.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "webview/raw_object.h"

namespace webview {
namespace {

TEST(ComPtr, HoldsAndReleasesOneReference) {
  RawObject object;
  {
    const auto shared = ComPtr<IUnknown>::Share(object.As<IUnknown>());
    EXPECT_EQ(object.References(), 2);
    EXPECT_EQ(shared.Get(), object.As<IUnknown>());
  }
  EXPECT_EQ(object.References(), 1);
}

TEST(ComPtr, MovingReleasesTheOldObjectOnce) {
  RawObject first;
  RawObject second;
  auto left = ComPtr<IUnknown>::Share(first.As<IUnknown>());
  auto right = ComPtr<IUnknown>::Share(second.As<IUnknown>());
  left = std::move(right);
  EXPECT_EQ(first.References(), 1);
  EXPECT_EQ(second.References(), 2);
  *left.Receive() = nullptr;
  EXPECT_EQ(second.References(), 1);
  EXPECT_FALSE(left);
}

EnvironmentCompleted* MakeHandler(EnvironmentCompleted::Function function) {
  return new EnvironmentCompleted(kIidEnvironmentCompletedHandler, std::move(function));
}

TEST(Callback, SupportsOnlyItsOwnIdAndIUnknown) {
  const ComPtr<EnvironmentCompleted> handler(MakeHandler([](auto, auto) {}));
  void* object = nullptr;
  EXPECT_EQ(handler->QueryInterface(kIidEnvironmentCompletedHandler, &object), S_OK);
  EXPECT_EQ(object, handler.Get());
  EXPECT_EQ(handler->QueryInterface(IID_IUnknown, &object), S_OK);
  EXPECT_EQ(object, handler.Get());
  EXPECT_EQ(handler->QueryInterface(kIidControllerCompletedHandler, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  EXPECT_EQ(handler->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(handler->Release(), 2u);
  EXPECT_EQ(handler->Release(), 1u);
}

TEST(Callback, IsDestroyedWithItsLastReference) {
  const auto witness = std::make_shared<int>(0);
  EnvironmentCompleted* handler = MakeHandler([witness](auto, auto) {});
  EXPECT_EQ(handler->AddRef(), 2u);
  EXPECT_EQ(handler->Release(), 1u);
  EXPECT_EQ(witness.use_count(), 2);
  EXPECT_EQ(handler->Release(), 0u);
  EXPECT_EQ(witness.use_count(), 1);
}

TEST(Callback, PassesItsArgumentsOn) {
  RawObject environment;
  HRESULT seenResult = S_OK;
  ICoreWebView2Environment* seenEnvironment = nullptr;
  const ComPtr<EnvironmentCompleted> handler(
      MakeHandler([&](HRESULT result, ICoreWebView2Environment* given) {
        seenResult = result;
        seenEnvironment = given;
      }));
  EXPECT_EQ(handler->Invoke(E_ABORT, environment.As<ICoreWebView2Environment>()), S_OK);
  EXPECT_EQ(seenResult, E_ABORT);
  EXPECT_EQ(seenEnvironment, environment.As<ICoreWebView2Environment>());
}

TEST(Callback, TurnsAnExceptionIntoAFailure) {
  const ComPtr<EnvironmentCompleted> handler(
      MakeHandler([](auto, auto) { throw std::runtime_error("inside"); }));
  EXPECT_EQ(handler->Invoke(S_OK, nullptr), E_FAIL);
}

}  // namespace
}  // namespace webview
