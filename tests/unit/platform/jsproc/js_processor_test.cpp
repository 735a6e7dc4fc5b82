#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jsproc.h>

#include <string>
#include <thread>
#include <vector>

using testing::HasSubstr;

namespace {

using Vars = std::map<std::string, std::string>;

struct Outcome {
  bool good;
  std::string output;
  Vars vars;
};

Outcome run(const std::string& script, Vars vars = {}) {
  std::string output;
  const bool good = js::jsProcessorExt(nullptr, script, vars, output);
  return {good, output, vars};
}

// The output of a script that must succeed.
std::string printed(const std::string& script, const Vars& vars = {}) {
  const Outcome outcome = run(script, vars);
  EXPECT_TRUE(outcome.good) << outcome.output;
  return outcome.output;
}

}  // namespace

TEST(JsProcessor, EmptyScript_SucceedsWithNothing) { EXPECT_EQ(printed(""), ""); }

TEST(JsProcessor, Print_InsertsItsArgumentsAsTheyStand) {
  EXPECT_EQ(printed("print('<b>', 1, true, null, '</b>'); print(); print('.')"), "<b>1truenull</b>.");
}

TEST(JsProcessor, Output_IsAppended) {
  std::string output = "before ";
  Vars vars;
  EXPECT_TRUE(js::jsProcessorExt(nullptr, "print('after')", vars, output));
  EXPECT_EQ(output, "before after");
  EXPECT_FALSE(js::jsProcessorExt(nullptr, "print('lost'); nonsense()", vars, output));
  EXPECT_THAT(output, testing::StartsWith("before afterReferenceError"));
  EXPECT_THAT(output, testing::Not(HasSubstr("lost")));
}

TEST(JsProcessor, Escape_MakesTextSafe) {
  EXPECT_EQ(printed("print(escape('<a b=\"c\">&\\''))"), "&lt;a b=&quot;c&quot;&gt;&amp;&apos;");
  EXPECT_EQ(printed("print(escape(5), escape())"), "5undefined");
}

TEST(JsProcessor, Variables_AreReadAndChanged) {
  const Outcome outcome = run("vars.c = vars.a + vars.b; vars.n = 7; delete vars.a; vars.b = null; vars.u = undefined",
                              {{"a", "1"}, {"b", "2"}, {"", "empty name"}, {"toString", "shadow"}});
  EXPECT_TRUE(outcome.good) << outcome.output;
  EXPECT_EQ(outcome.vars, (Vars{{"c", "12"}, {"n", "7"}, {"", "empty name"}, {"toString", "shadow"}}));
}

TEST(JsProcessor, MissingVariable_IsUndefined) {
  EXPECT_EQ(printed("print(vars.nothing, typeof vars.toString, typeof vars.__proto__)"), "undefinedundefinedundefined");
}

TEST(JsProcessor, ScriptsOwnVarsVariable_DoesNotTakeTheirPlace) {
  const Outcome outcome = run("vars.x = '2'; vars = {x: '3'}", {{"x", "1"}});
  EXPECT_TRUE(outcome.good);
  EXPECT_EQ(outcome.vars.at("x"), "2");
}

TEST(JsProcessor, FailedScript_ChangesNoVariable) {
  const Outcome outcome = run("vars.x = '2'; vars.y = '3'; throw new Error('because')", {{"x", "1"}});
  EXPECT_FALSE(outcome.good);
  EXPECT_EQ(outcome.output, "Error: because");
  EXPECT_EQ(outcome.vars, (Vars{{"x", "1"}}));
}

TEST(JsProcessor, Failures_GiveTheirReason) {
  EXPECT_THAT(run("print('a' 'b')").output, HasSubstr("SyntaxError"));
  EXPECT_THAT(run("nothing.at.all").output, HasSubstr("ReferenceError"));
  EXPECT_EQ(run("throw 'a text'").output, "a text");
  EXPECT_EQ(run("throw null").output, "null");
  EXPECT_FALSE(run("throw {toString: function() { throw 1 }}").good);
  EXPECT_FALSE(run("vars.x = {toString: function() { throw new Error('late') }}").good);
}

TEST(JsProcessor, NextScript_SeesNothingOfTheOneBefore) {
  run("leftover = 1; Object.prototype.leftover = 1; print = null");
  EXPECT_EQ(printed("print(typeof leftover, typeof ({}).leftover)"), "undefinedundefined");
}

TEST(JsProcessor, Interfaces_ToTheWorldAreAbsent) {
  EXPECT_EQ(
      printed("var names = ['require', 'module', 'process', 'Duktape', 'readFile', 'load', 'system', 'XMLHttpRequest'];"
              "for (var i = 0; i < names.length; ++i) print(typeof this[names[i]], ' ')"),
      "undefined undefined undefined undefined undefined undefined undefined undefined ");
}

TEST(JsProcessor, Characters_OfEveryLengthComeThrough) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
  const Outcome outcome = run(
      "print(vars.t, vars.t.length, '\xF0\x9F\x98\x80'.length); vars.u = vars.t + '\xF0\x9F\x98\x80'", {{"t", text}});
  EXPECT_TRUE(outcome.good);
  EXPECT_EQ(outcome.output, text + "52");
  EXPECT_EQ(outcome.vars.at("u"), text + "\xF0\x9F\x98\x80");
}

TEST(JsProcessor, SurrogatesPrintedApart_AreOneCharacter) {
  EXPECT_EQ(printed("print('\\uD83D'); print('\\uDE00')"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(printed("print('\\uD83D')"), "\xEF\xBF\xBD");
}

TEST(JsProcessor, BytesThatAreNotUtf8_AreReplacedForTheScriptAlone) {
  const Outcome outcome = run("print(vars.v.length, vars.v.charCodeAt(1)); vars.w = vars.v", {{"v", "a\xFFz"}});
  EXPECT_EQ(outcome.output, "365533");
  EXPECT_EQ(outcome.vars.at("v"), "a\xFFz");
  EXPECT_EQ(outcome.vars.at("w"), "a\xEF\xBF\xBDz");
  EXPECT_TRUE(run("print('\xFF')").good);
}

TEST(JsProcessor, NameThatLooksLikeAnInternalKey_IsAPlainVariable) {
  const Outcome outcome = run("vars.x = 1", {{"\xFFrun", "1"}, {"\x80", "2"}, {"\x82z", "3"}});
  EXPECT_TRUE(outcome.good) << outcome.output;
  EXPECT_EQ(outcome.vars.at("x"), "1");
}

TEST(JsProcessor, ZeroBytes_StayInTheirStrings) {
  const Outcome outcome = run("print(vars.z.length); vars.y = vars.z", {{"z", std::string("a\0b", 3)}});
  EXPECT_EQ(outcome.output, "3");
  EXPECT_EQ(outcome.vars.at("y"), std::string("a\0b", 3));
}

TEST(JsProcessor, EndlessScripts_AreEnded) {
  for (const char* const script :
       {"for (;;) {}", "for (;;) { try { for (;;) {} } catch (e) {} }",
        "function f() { f() } for (;;) { try { f() } catch (e) {} }",
        "for (;;) { try { /(a+)+$/.test('aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab') } catch (e) {} }",
        "vars.x = {toString: function() { for (;;) {} }}"}) {
    const Outcome outcome = run(script);
    EXPECT_FALSE(outcome.good) << script;
    EXPECT_EQ(outcome.output, "the script ran longer than a second") << script;
  }
}

TEST(JsProcessor, RegularExpressionOfManySteps_Fails) {
  EXPECT_THAT(run("/(a+)+$/.test('aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab')").output, HasSubstr("regexp"));
}

TEST(JsProcessor, BoundlessMemory_IsRefused) {
  for (const char* const script :
       {"var s = 'x'; for (;;) s += s", "var a = []; for (;;) a.push(new Uint8Array(65536))"}) {
    const Outcome outcome = run(script);
    EXPECT_FALSE(outcome.good);
    EXPECT_THAT(outcome.output, HasSubstr("8 MiB")) << script;
  }
}

TEST(JsProcessor, LargeVariables_LeaveTheScriptItsMemory) {
  const std::string large(std::size_t{12} << 20U, 'x');
  const std::string replaced(std::size_t{4} << 20U, '\xFF');  // three bytes each to a script
  const Outcome outcome =
      run("print(vars.large.length, ' ', vars.replaced.length, ' ', vars.large.slice(0, 3)); vars.made = 'by script';"
          "var s = new Array(1024).join('y'), a = []; for (var i = 0; i < 4096; ++i) a.push(s + i)",
          {{"large", large}, {"replaced", replaced}});
  EXPECT_TRUE(outcome.good);
  EXPECT_EQ(outcome.output, "12582912 4194304 xxx");
  EXPECT_TRUE(outcome.vars == (Vars{{"large", large}, {"replaced", replaced}, {"made", "by script"}}));
}

TEST(JsProcessor, LargeVariables_AreNoLeaveForMore) {
  const Vars large{{"large", std::string(std::size_t{12} << 20U, 'x')}};
  for (const char* const script :
       {"vars.larger = vars.large + 'x'", "var a = []; for (;;) a.push(new Uint8Array(65536))"}) {
    const Outcome outcome = run(script, large);
    EXPECT_FALSE(outcome.good);
    EXPECT_THAT(outcome.output, HasSubstr("8 MiB")) << script;
    EXPECT_TRUE(outcome.vars == large) << script;
  }
  EXPECT_EQ(run("for (;;) {}", large).output, "the script ran longer than a second");
}

TEST(JsProcessor, BoundlessOutput_IsRefused) {
  EXPECT_EQ(run("var s = new Array(1000).join('x'); for (;;) print(s)").output, "the script printed more than 1 MiB");
  EXPECT_EQ(printed("var s = 'x'; for (var i = 0; i < 20; ++i) s += s; print(s)").size(), 1024U * 1024U);
}

TEST(JsProcessor, DeepRecursionAndNesting_FailWithoutHarm) {
  EXPECT_THAT(run("function f() { return f() + 1 } f()").output, HasSubstr("RangeError"));
  EXPECT_FALSE(run(std::string(100000, '[')).good);
  EXPECT_FALSE(run(std::string(100000, '(')).good);
  EXPECT_FALSE(run("JSON.parse(new Array(100000).join('['))").good);
  EXPECT_FALSE(run("new RegExp(new Array(20000).join('('))").good);
  EXPECT_FALSE(run("/(?:a|b)*c/.test(new Array(100000).join('a'))").good);
}

TEST(JsProcessor, ScriptsOnSeveralThreads_DoNotMeet) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(8);
  for (std::size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([i, &results] {
      const std::string own = std::to_string(i);
      results[i] = run("var s = 0; for (var i = 0; i < 1000; ++i) s += +vars.n; print(s)", {{"n", own}}).output;
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], std::to_string(i * 1000));
}
