#include "Binary/Binary/BinaryDataManager/BoundedQueue.h"
#include "Binary/Binary/BinaryDataManager/TaskQueueManager.h"

#include <gmock/gmock.h>

namespace varo::binary {
namespace {

using namespace platform;
using TaskPtr = TaskQueueManager::TaskPtr;

/// Runs until the test says otherwise.
class HeldTask final : public VSTask {
 public:
  using VSTask::VSTask;
  void execute() override {}
};

TaskPtr held(const std::string& name) { return std::make_shared<HeldTask>(name); }

bool isStarted(const TaskPtr& task) { return task->state() == TaskState::Started; }

TEST(TaskQueueManagerTest, UnknownRepeatedAndDoubledTasksAreTreatedAsTheContractSays) {
  TaskQueueManager manager;
  const TaskPtr task = held("task");
  // Not registered: not scheduled and not moved, but started when there is room.
  manager.addToScheduledQueue(task);
  EXPECT_EQ(manager.getNextScheduledTask(), nullptr);
  manager.addTaskToInProgressQueue(task);
  manager.removeTaskFromInProgressQueue(task);
  manager.removeKey("task");
  EXPECT_EQ(manager.getInProgressQueueLength(), 0U);
  manager.checkAndStartExecution(task);
  EXPECT_TRUE(isStarted(task));
  EXPECT_EQ(manager.getInProgressQueueLength(), 0U);

  // Scheduled twice is scheduled once; in progress it moves there.
  manager.addTask(task, "task");
  manager.addToScheduledQueue(task);
  manager.addToScheduledQueue(task);
  manager.addTaskToInProgressQueue(task);
  EXPECT_EQ(manager.getNextScheduledTask(), nullptr);
  EXPECT_EQ(manager.getInProgressQueueLength(), 1U);
  // In progress and no longer scheduled: entered again. In both: left alone.
  manager.checkAndStartExecution(task);
  EXPECT_EQ(manager.getInProgressQueueLength(), 2U);
  manager.addToScheduledQueue(task);
  manager.addTaskToInProgressQueue(task);
  EXPECT_EQ(manager.getInProgressQueueLength(), 2U);
  EXPECT_EQ(manager.getNextScheduledTask(), task);
  // All entries go at once; the task stays registered and scheduled.
  EXPECT_TRUE(manager.removeTaskFromInProgressQueue(task));
  EXPECT_FALSE(manager.removeTaskFromInProgressQueue(task));
  EXPECT_EQ(manager.getInProgressQueueLength(), 0U);
  EXPECT_TRUE(manager.containsKey("task"));
  EXPECT_EQ(manager.getNextScheduledTask(), task);

  // A key is taken over by the next task; the old one stays where it waits.
  const TaskPtr other = held("task");
  manager.addTask(other, "task");
  EXPECT_EQ(manager.get("task"), other);
  EXPECT_EQ(manager.getNextScheduledTask(), task);
}

/// Asks its queue when it is destroyed, which would hang under the queue's lock.
struct Item {
  explicit Item(int itemNumber) : number(itemNumber) {}
  ~Item() {
    if (queue != nullptr) (void)queue->waiting();
  }
  int number;
  BoundedQueue<Item>* queue = nullptr;
};
using ItemPtr = BoundedQueue<Item>::ItemPtr;

std::vector<ItemPtr> items(int count) {
  std::vector<ItemPtr> made;
  for (int i = 0; i < count; ++i) made.push_back(std::make_shared<Item>(i));
  return made;
}

TEST(BoundedQueueTest, ItemsTakeThePlacesThereAreInTheirOrder) {
  BoundedQueue<Item> queue(2);
  const auto all = items(4);
  EXPECT_FALSE(queue.takeToStart(all[0])) << "does not wait";
  EXPECT_EQ(queue.takeFirstToStart(), nullptr);
  for (const ItemPtr& item : all) EXPECT_TRUE(queue.schedule(item));
  EXPECT_FALSE(queue.schedule(all[1])) << "waits already";

  EXPECT_TRUE(queue.takeToStart(all[2]));
  EXPECT_FALSE(queue.takeToStart(all[2])) << "runs already";
  EXPECT_EQ(queue.takeFirstToStart(), all[0]);
  EXPECT_EQ(queue.takeFirstToStart(), nullptr) << "no place";
  EXPECT_FALSE(queue.takeToStart(all[1]));
  EXPECT_EQ(queue.waiting(), 2U);
  EXPECT_EQ(queue.running(), 2U);
  EXPECT_TRUE(queue.isRunning(all[0]) && !queue.isWaiting(all[0]));
  EXPECT_TRUE(queue.isWaiting(all[1]) && !queue.isRunning(all[1]));

  EXPECT_FALSE(queue.removeFromRunning(all[3]));
  EXPECT_TRUE(queue.remove(all[3]));
  EXPECT_TRUE(queue.remove(all[0]));
  EXPECT_FALSE(queue.remove(all[0])) << "one caller alone is told so";
  EXPECT_EQ(queue.takeAllWaiting(), std::vector<ItemPtr>{all[1]});
  EXPECT_FALSE(queue.isWaiting(all[1]));
  EXPECT_TRUE(queue.schedule(all[1])) << "those taken may wait again";
}

}  // namespace
}  // namespace varo::binary
