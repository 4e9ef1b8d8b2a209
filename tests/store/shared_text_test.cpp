// The records' texts: inline or shared, interned once per content.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "store/text_pool.h"

using namespace korvane;

namespace {

TEST(SharedText, ReadsLikeTheTextItHoldsInEitherForm) {
  const std::string texts[] = {"", "a.", std::string("\0\x01\xff", 3), "1234567", "12345678",
                               "0.0.0.0.in-addr.arpa.", std::string(300, 'x')};
  for (const std::string& text : texts) {
    SharedText shared(text);
    EXPECT_EQ(shared.node() == nullptr, text.size() <= SharedText::kInlineBytes) << text;
    EXPECT_EQ(shared.size(), text.size());
    EXPECT_EQ(shared.str(), text);
    EXPECT_EQ(std::string_view(shared), text);
    EXPECT_TRUE(shared == text);
    EXPECT_TRUE(shared == SharedText::NewNode(text)) << "a node equals the inline form";
    EXPECT_FALSE(shared == text + "!");
    EXPECT_EQ(HashText(shared), HashText(text));
    std::ostringstream shown;
    shown << shared;
    EXPECT_EQ(shown.str(), text);
    EXPECT_EQ("<" + shared + ">", "<" + text + ">");
  }
}

TEST(SharedText, CopiesShareOneNodeThatLivesAsLongAsOneOfThem) {
  SharedText moved;
  const SharedText::Node* node;
  {
    SharedText first("www.example.com.");
    node = first.node();
    SharedText copy = first;
    EXPECT_EQ(copy.node(), node);
    EXPECT_EQ(node->refs, 2u);
    moved = std::move(copy);
    EXPECT_TRUE(copy.empty());
    first = "other.example.com.";
    EXPECT_EQ(node->refs, 1u);
  }
  EXPECT_EQ(moved.node(), node);
  EXPECT_EQ(moved, "www.example.com.");
  moved = moved;  // self-assignment keeps the text
  EXPECT_EQ(moved, "www.example.com.");
}

TEST(TextPool, GivesOneNodePerContentAndLetsUnusedOnesGo) {
  TextPool pool;
  SharedText a = pool.Intern("host.example.");
  SharedText b = pool.Intern(std::string("host.example."));
  EXPECT_EQ(a.node(), b.node());
  EXPECT_NE(pool.Intern("a.").node(), nullptr) << "names are nodes however short";
  EXPECT_EQ(pool.InternData(std::string("\x0a\0\0\x01", 4)).node(), nullptr) << "short data stays inline";
  SharedText target = pool.InternData("target.example.");
  EXPECT_EQ(target.node(), pool.Find("target.example."));

  // A node of its own is taken over; one another pool holds is copied.
  SharedText own("mail.example.com.");
  EXPECT_EQ(pool.Intern(own).node(), own.node());
  TextPool other;
  SharedText elsewhere = other.Intern("ns.example.net.");
  SharedText here = pool.Intern(elsewhere);
  EXPECT_NE(here.node(), elsewhere.node());
  EXPECT_EQ(here, elsewhere);

  // Many texts: the table grows, and what nothing holds any more goes.
  std::vector<SharedText> held;
  for (int i = 0; i < 5000; ++i) held.push_back(pool.Intern("h" + std::to_string(i) + ".example."));
  for (int i = 0; i < 5000; ++i) ASSERT_EQ(pool.Find("h" + std::to_string(i) + ".example."), held[i].node());
  held.resize(100);
  pool.Sweep();
  // What is still held: a and b's node, target, own, here and the hundred.
  EXPECT_EQ(pool.size(), 104u);
  EXPECT_EQ(pool.Find("a."), nullptr);
  EXPECT_EQ(pool.Find("h99.example."), held[99].node());
  EXPECT_EQ(pool.Find("h100.example."), nullptr);
  EXPECT_EQ(pool.Find("host.example."), a.node());
}

}  // namespace
