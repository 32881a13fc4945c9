#ifndef IVRA_TESTS_SUPPORT_FUNCTION_REF_H
#define IVRA_TESTS_SUPPORT_FUNCTION_REF_H

namespace ivra::tests {

template <class Signature>
class function_ref;

/// A function or lambda that lives as long as the call it is passed to. Tests pass hundreds of them, and each
/// std::function takes the compiler several times as long.
template <class Result, class... Arguments>
class function_ref<Result(Arguments...)>
{
public:
    template <class Function>
    requires requires(const Function& function, Arguments... arguments) { function(arguments...); }
    function_ref(const Function& function) : function_{&function}, call_{&call<Function>} {}
    Result operator()(Arguments... arguments) const { return call_(function_, arguments...); }

private:
    template <class Function>
    static Result call(const void* function, Arguments... arguments)
    {
        return (*static_cast<const Function*>(function))(arguments...);
    }

    const void* function_;
    Result (*call_)(const void* function, Arguments... arguments);
};

} // namespace ivra::tests

#endif
