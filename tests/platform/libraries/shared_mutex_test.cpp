#include "story.h"

#include <csignal>

#include <sys/time.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

/// Lets one process wait for a word of another one.
class signal_pipe
{
public:
    signal_pipe() { EXPECT_EQ(::pipe(ends_), 0); }
    ~signal_pipe()
    {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    signal_pipe(const signal_pipe&) = delete;
    signal_pipe& operator=(const signal_pipe&) = delete;
    void send() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
    void wait() const
    {
        char word = 0;
        EXPECT_EQ(::read(ends_[0], &word, 1), 1);
    }

private:
    int ends_[2] = {-1, -1};
};

class shared_mutex : public host
{
};

TEST_F(shared_mutex, locks_and_unlocks_again_and_again)
{
    run([] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        ASSERT_NE(mutex, nullptr);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
            EXPECT_EQ(ivra_hw_shared_mutex_unlock(mutex), 0);
            EXPECT_EQ(ivra_hw_shared_mutex_trylock(mutex), 0);
            EXPECT_EQ(ivra_hw_shared_mutex_unlock(mutex), 0);
        }
        ivra_hw_shared_mutex_destroy(mutex);
    });
}

TEST_F(shared_mutex, held_by_this_process_is_EDEADLK_through_this_handle_or_another)
{
    run([] {
        ivra_hw_shared_mutex* one = ivra_hw_shared_mutex_create("m");
        ivra_hw_shared_mutex* two = ivra_hw_shared_mutex_create("m");
        ivra_hw_shared_mutex* other = ivra_hw_shared_mutex_create("another name");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(one), 0);
        for (ivra_hw_shared_mutex* mutex : {one, two}) {
            EXPECT_FAILS(-1, EDEADLK, ivra_hw_shared_mutex_lock(mutex));
            EXPECT_FAILS(-1, EDEADLK, ivra_hw_shared_mutex_trylock(mutex));
        }
        EXPECT_EQ(ivra_hw_shared_mutex_trylock(other), 0);
        EXPECT_EQ(ivra_hw_shared_mutex_unlock(one), 0);
        EXPECT_EQ(ivra_hw_shared_mutex_lock(two), 0) << "free again";
        for (ivra_hw_shared_mutex* mutex : {one, two, other})
            ivra_hw_shared_mutex_destroy(mutex);
    });
}

TEST_F(shared_mutex, an_unlock_of_what_this_handle_does_not_hold_is_EPERM)
{
    run([] {
        ivra_hw_shared_mutex* one = ivra_hw_shared_mutex_create("m");
        ivra_hw_shared_mutex* two = ivra_hw_shared_mutex_create("m");
        EXPECT_FAILS(-1, EPERM, ivra_hw_shared_mutex_unlock(one));
        EXPECT_EQ(ivra_hw_shared_mutex_lock(one), 0);
        EXPECT_FAILS(-1, EPERM, ivra_hw_shared_mutex_unlock(two));
        EXPECT_EQ(ivra_hw_shared_mutex_unlock(one), 0);
        EXPECT_FAILS(-1, EPERM, ivra_hw_shared_mutex_unlock(one));
        ivra_hw_shared_mutex_destroy(one);
        ivra_hw_shared_mutex_destroy(two);
    });
}

TEST_F(shared_mutex, held_elsewhere_is_EBUSY_even_after_another_handle_of_the_holder_went)
{
    const signal_pipe locked, done;
    const ::pid_t holder = start([&] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        ivra_hw_shared_mutex* second = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        ivra_hw_shared_mutex_destroy(second);
        locked.send();
        done.wait();
        EXPECT_EQ(ivra_hw_shared_mutex_unlock(mutex), 0);
        locked.send();
        done.wait();
        ivra_hw_shared_mutex_destroy(mutex);
    });
    locked.wait();
    run([&] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_FAILS(-1, EBUSY, ivra_hw_shared_mutex_trylock(mutex));
        done.send();
        locked.wait();
        EXPECT_EQ(ivra_hw_shared_mutex_trylock(mutex), 0);
        done.send();
        ivra_hw_shared_mutex_destroy(mutex);
    });
    EXPECT_EQ(end_of(holder).status, 0);
}

TEST_F(shared_mutex, is_released_when_its_holder_dies_even_by_force_and_although_its_child_lives)
{
    const signal_pipe locked, done;
    const ::pid_t holder = start([&] {
        EXPECT_EQ(ivra_hw_shared_mutex_lock(ivra_hw_shared_mutex_create("m")), 0);
        if (::fork() == 0) {
            done.wait();
            ::_exit(0);
        }
        locked.send();
        ::pause();
    });
    locked.wait();
    const ::pid_t waiter = start([&] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_FAILS(-1, EBUSY, ivra_hw_shared_mutex_trylock(mutex));
        locked.send();
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        ivra_hw_shared_mutex_destroy(mutex);
    });
    locked.wait();
    ::kill(holder, SIGKILL);
    EXPECT_EQ(end_of(holder).signal, SIGKILL);
    EXPECT_EQ(end_of(waiter).status, 0);
    done.send();
}

TEST_F(shared_mutex, is_released_by_destroying_the_handle_that_holds_it)
{
    run([&] {
        ivra_hw_shared_mutex* first = ivra_hw_shared_mutex_create("m");
        ivra_hw_shared_mutex* second = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(first), 0);
        ivra_hw_shared_mutex_destroy(first);
        EXPECT_EQ(ivra_hw_shared_mutex_trylock(second), 0);
        ivra_hw_shared_mutex_destroy(second);
    });
}

TEST_F(shared_mutex, a_child_does_not_hold_what_its_parent_holds)
{
    run([] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        run([&] {
            EXPECT_FAILS(-1, EPERM, ivra_hw_shared_mutex_unlock(mutex));
            EXPECT_FAILS(-1, EBUSY, ivra_hw_shared_mutex_trylock(mutex));
            ivra_hw_shared_mutex_destroy(mutex);
        });
        run([] {
            ivra_hw_shared_mutex* again = ivra_hw_shared_mutex_create("m");
            EXPECT_FAILS(-1, EBUSY, ivra_hw_shared_mutex_trylock(again)) << "the parent holds it still";
            ivra_hw_shared_mutex_destroy(again);
        });
        EXPECT_EQ(ivra_hw_shared_mutex_unlock(mutex), 0);
        ivra_hw_shared_mutex_destroy(mutex);
    });
}

TEST_F(shared_mutex, waiting_goes_on_after_signals)
{
    const signal_pipe locked, done;
    const ::pid_t holder = start([&] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        locked.send();
        done.wait();
        ivra_hw_shared_mutex_destroy(mutex);
    });
    locked.wait();
    run([&] {
        static const signal_pipe* to_holder = nullptr;
        static volatile std::sig_atomic_t signals = 0;
        to_holder = &done;
        struct ::sigaction action
        {
        };
        action.sa_handler = [](int) {
            signals = signals + 1;
            if (signals == 3)
                to_holder->send();
        };
        ::sigaction(SIGALRM, &action, nullptr); // without SA_RESTART
        const ::itimerval every{{0, 20'000}, {0, 20'000}};
        ::setitimer(ITIMER_REAL, &every, nullptr);
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        EXPECT_GE(signals, 3);
        const ::itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ivra_hw_shared_mutex_destroy(mutex);
    });
    EXPECT_EQ(end_of(holder).status, 0);
}

TEST_F(shared_mutex, names_may_hold_anything_and_be_of_any_length)
{
    run([] {
        std::vector<ivra_hw_shared_mutex*> mutexes;
        for (const std::string& name :
             {std::string{}, std::string{"."}, std::string{".."}, std::string{"/"}, std::string{"a/b"},
              std::string{"a+b"}, std::string{"a%2Bb"}, std::string{"a\nb"}, std::string(5000, 'x'),
              std::string(5000, 'x') + "y", std::string("\xff\x01")}) {
            mutexes.push_back(ivra_hw_shared_mutex_create(name.c_str()));
            ASSERT_NE(mutexes.back(), nullptr) << name;
            EXPECT_EQ(ivra_hw_shared_mutex_lock(mutexes.back()), 0) << name << ": each is another mutex";
        }
        for (ivra_hw_shared_mutex* mutex : mutexes)
            ivra_hw_shared_mutex_destroy(mutex);
    });
}

} // namespace

} // namespace ivra::platform_tests
