// A program with one fault for each sanitizer, named by its argument: proof that a build which
// claims a sanitizer has it.

#include <climits>
#include <cstdio>
#include <memory>
#include <string_view>
#include <thread>

namespace {

int readBehindTheEnd(int index)
{
    const std::unique_ptr<int[]> numbers(new int[4]{ 1, 2, 3, 4 });
    return numbers[static_cast<std::size_t>(index)];
}

int overflow(int summand)
{
    return INT_MAX + summand;
}

int race()
{
    int shared = 0;
    std::thread other([&shared] { ++shared; });
    ++shared;
    other.join();
    return shared;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view fault = argc > 1 ? argv[1] : "";
    int result = 0;
    if (fault == "address")
        result = readBehindTheEnd(argc + 2);
    else if (fault == "undefined")
        result = overflow(argc);
    else if (fault == "thread")
        result = race();
    std::printf("%s: not noticed (%d)\n", argv[0], result);
    return 0;
}
