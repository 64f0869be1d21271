// A test can watch calls of the C library, the program's own and those of the library under test, or make them fail.
//
// If a program defines a function itself, its shared libraries call that one too. One file of the program says
//
//   INTERPOSE(socket, 3); // the function and how many arguments it takes
//
// and from then on every call of socket() goes through interposed::socket_call, which passes it on to the C library
// until a test stands in for it:
//
//   const interposed::StandIn hook(interposed::socket_call, [](int, int, int) { return interposed::fail(EMFILE); });
//
// A third argument of INTERPOSE is a function that stands in when no test does. INTERPOSED(socket) declares the call,
// for other files of the program and for that function.
#pragma once

#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stddef.h>

#include <tuple>

namespace interposed {

// A thread may be cancelled at any instruction of these calls: nothing here has a destructor, and everything is inlined
// into the file that interposes, so that this file alone decides how it is compiled (-fno-exceptions where the end of a
// thread must find its way through instrumented code).
template <typename Signature>
class Call;

template <typename Result, typename... Arguments>
class Call<Result(Arguments...)> {
 public:
  using Function = Result (*)(Arguments...);
  constexpr explicit Call(const char *name, Function usual = nullptr) : name_(name), hook_(usual) {}

  [[gnu::always_inline]] Result operator()(Arguments... arguments) {
    const Function hook = __atomic_load_n(&hook_, __ATOMIC_SEQ_CST);
    return hook ? hook(arguments...) : real(arguments...);
  }
  // Calls the C library's function, or the sanitizer's in front of it.
  [[gnu::always_inline]] Result real(Arguments... arguments) {
    return find()(arguments...);
  }
  // INTERPOSE looks the function up before any thread needs it: a thread that is cancelled while it looks would keep
  // the loader's lock.
  [[gnu::always_inline]] Function find() {
    Function function = __atomic_load_n(&real_, __ATOMIC_ACQUIRE);
    if (!function) {
      function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name_));
      __atomic_store_n(&real_, function, __ATOMIC_RELEASE);
    }
    return function;
  }
  // Returns what stood in before.
  Function stand_in(Function hook) {
    return __atomic_exchange_n(&hook_, hook, __ATOMIC_SEQ_CST);
  }

 private:
  const char *name_;
  Function hook_;
  Function real_ = nullptr;
};

// While it lives `hook` is called instead.
template <typename Signature>
class StandIn {
 public:
  StandIn(Call<Signature> &call, typename Call<Signature>::Function hook) : call_(call), before_(call.stand_in(hook)) {}
  ~StandIn() {
    call_.stand_in(before_);
  }
  StandIn(const StandIn &) = delete;
  StandIn &operator=(const StandIn &) = delete;

 private:
  Call<Signature> &call_;
  const typename Call<Signature>::Function before_;
};

// Sets errno and returns -1, as a system call that failed does.
[[gnu::always_inline]] inline int fail(int error) {
  errno = error;
  return -1;
}

// What the macros below ask of a function's declaration; these are never called.
template <typename Result, typename... Arguments>
Call<Result(Arguments...)> call_of(Result (*)(Arguments...));
template <typename Result, typename... Arguments>
Call<Result(Arguments..., void *)> call_of(Result (*)(Arguments..., ...));
template <typename Result, typename... Arguments>
Result result_of(Result (*)(Arguments...));
template <typename Result, typename... Arguments>
Result result_of(Result (*)(Arguments..., ...));
template <size_t n, typename Result, typename... Arguments>
std::tuple_element_t<n, std::tuple<Arguments...>> argument_of(Result (*)(Arguments...));
template <size_t n, typename Result, typename... Arguments>
std::tuple_element_t<n, std::tuple<Arguments...>> argument_of(Result (*)(Arguments..., ...));

template <typename Result, typename... Arguments>
constexpr bool is_noexcept(Result (*)(Arguments...) noexcept) {
  return true;
}
template <typename Result, typename... Arguments>
constexpr bool is_noexcept(Result (*)(Arguments..., ...) noexcept) {
  return true;
}
constexpr bool is_noexcept(...) {
  return false;
}

} // namespace interposed

#define INTERPOSED(name)                         \
  namespace interposed {                         \
  extern decltype(call_of(&::name)) name##_call; \
  }                                              \
  static_assert(true)

#define INTERPOSE_PARAMETER(name, n) decltype(interposed::argument_of<n>(&::name)) argument##n
#define INTERPOSE_PARAMETERS_1(name) INTERPOSE_PARAMETER(name, 0)
#define INTERPOSE_PARAMETERS_2(name) INTERPOSE_PARAMETERS_1(name), INTERPOSE_PARAMETER(name, 1)
#define INTERPOSE_PARAMETERS_3(name) INTERPOSE_PARAMETERS_2(name), INTERPOSE_PARAMETER(name, 2)
#define INTERPOSE_PARAMETERS_4(name) INTERPOSE_PARAMETERS_3(name), INTERPOSE_PARAMETER(name, 3)
#define INTERPOSE_PARAMETERS_5(name) INTERPOSE_PARAMETERS_4(name), INTERPOSE_PARAMETER(name, 4)
#define INTERPOSE_PARAMETERS_6(name) INTERPOSE_PARAMETERS_5(name), INTERPOSE_PARAMETER(name, 5)
#define INTERPOSE_ARGUMENTS_1 argument0
#define INTERPOSE_ARGUMENTS_2 INTERPOSE_ARGUMENTS_1, argument1
#define INTERPOSE_ARGUMENTS_3 INTERPOSE_ARGUMENTS_2, argument2
#define INTERPOSE_ARGUMENTS_4 INTERPOSE_ARGUMENTS_3, argument3
#define INTERPOSE_ARGUMENTS_5 INTERPOSE_ARGUMENTS_4, argument4
#define INTERPOSE_ARGUMENTS_6 INTERPOSE_ARGUMENTS_5, argument5

#define INTERPOSE_LAST_2 argument1
#define INTERPOSE_LAST_3 argument2

#define INTERPOSE_CALL(name, ...)                                                                             \
  INTERPOSED(name);                                                                                           \
  constinit decltype(interposed::call_of(&::name)) interposed::name##_call(#name __VA_OPT__(, ) __VA_ARGS__); \
  [[gnu::constructor]] static void interposed_find_##name() {                                                 \
    interposed::name##_call.find();                                                                           \
  }                                                                                                           \
  static_assert(true)

#define INTERPOSE(name, count, ...)                                                                      \
  INTERPOSE_CALL(name __VA_OPT__(, ) __VA_ARGS__);                                                       \
  extern "C" decltype(interposed::result_of(&::name)) name(INTERPOSE_PARAMETERS_##count(name)) noexcept( \
      interposed::is_noexcept(&::name)) {                                                                \
    return interposed::name##_call(INTERPOSE_ARGUMENTS_##count);                                         \
  }                                                                                                      \
  static_assert(true)

// INTERPOSE_VARIADIC is for a function that takes at most one argument after `count` fixed ones, such as ioctl and
// semctl. The argument is a pointer, or is passed like one, and is handed on as it came.
#define INTERPOSE_VARIADIC(name, count, ...)                                                                 \
  INTERPOSE_CALL(name __VA_OPT__(, ) __VA_ARGS__);                                                           \
  extern "C" decltype(interposed::result_of(&::name)) name(INTERPOSE_PARAMETERS_##count(name),               \
                                                           ...) noexcept(interposed::is_noexcept(&::name)) { \
    va_list rest;                                                                                            \
    va_start(rest, INTERPOSE_LAST_##count);                                                                  \
    void *const last = va_arg(rest, void *);                                                                 \
    va_end(rest);                                                                                            \
    return interposed::name##_call(INTERPOSE_ARGUMENTS_##count, last);                                       \
  }                                                                                                          \
  static_assert(true)
