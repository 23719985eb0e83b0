package main

import (
	"time"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// taskManagerMethods answers TaskManager.CreateTask: a task an extension
// shows in the server's task list and drives itself.
type taskManagerMethods struct {
	Self types.ManagedObjectReference
}

func (m *taskManagerMethods) Reference() types.ManagedObjectReference { return m.Self }

func (m *taskManagerMethods) CreateTask(req *types.CreateTask) soap.HasFault {
	body := &methods.CreateTaskBody{}
	entity := simulator.Map.Get(req.Obj)
	if entity == nil {
		body.Fault_ = simulator.Fault("", &types.ManagedObjectNotFound{Obj: req.Obj})
		return body
	}
	if req.TaskTypeId == "" {
		body.Fault_ = simulator.Fault("a task needs a type id", &types.InvalidArgument{InvalidProperty: "taskTypeId"})
		return body
	}
	task := &clientTask{}
	task.Self = types.ManagedObjectReference{Type: "Task"}
	obj := req.Obj
	task.Info = types.TaskInfo{
		DescriptionId: req.TaskTypeId,
		Entity:        &obj,
		Cancelable:    req.Cancelable,
		State:         types.TaskInfoStateQueued,
		QueueTime:     time.Now(),
		ParentTaskKey: req.ParentTaskKey,
		ActivationId:  req.ActivationId,
		Reason:        &types.TaskReasonUser{UserName: req.InitiatedBy},
	}
	if named, ok := entity.(mo.Entity); ok {
		task.Info.EntityName = named.Entity().Name
	}
	simulator.Map.Put(task) // gives the reference and lists it among the recent tasks
	task.Info.Key = task.Self.Value
	task.Info.Task = task.Self
	body.Res = &types.CreateTaskResponse{Returnval: task.Info}
	return body
}

// clientTask: a task made by CreateTask, whose state, progress and
// description its creator sets; a cancel ends it as cancelled (an error of
// RequestCanceled), as the server's task list shows it.
type clientTask struct {
	mo.Task
}

func (t *clientTask) finished() bool {
	return t.Info.State == types.TaskInfoStateSuccess || t.Info.State == types.TaskInfoStateError
}

func (t *clientTask) SetTaskState(req *types.SetTaskState) soap.HasFault {
	body := &methods.SetTaskStateBody{}
	if t.finished() {
		body.Fault_ = simulator.Fault("the task has already ended", &types.InvalidState{})
		return body
	}
	now := time.Now()
	switch req.State {
	case types.TaskInfoStateRunning:
		t.Info.StartTime = &now
	case types.TaskInfoStateSuccess:
		t.Info.Result = req.Result
		t.Info.CompleteTime = &now
		t.Info.Progress = 100
	case types.TaskInfoStateError:
		t.Info.Error = req.Fault
		t.Info.CompleteTime = &now
	case types.TaskInfoStateQueued:
	default:
		body.Fault_ = simulator.Fault("no such task state: "+string(req.State), &types.InvalidArgument{InvalidProperty: "state"})
		return body
	}
	t.Info.State = req.State
	body.Res = &types.SetTaskStateResponse{}
	return body
}

func (t *clientTask) UpdateProgress(req *types.UpdateProgress) soap.HasFault {
	body := &methods.UpdateProgressBody{}
	switch {
	case t.Info.State != types.TaskInfoStateRunning:
		body.Fault_ = simulator.Fault("the task is not running", &types.InvalidState{})
	case req.PercentDone < 0 || req.PercentDone > 100:
		body.Fault_ = simulator.Fault("progress beyond 0-100", &types.OutOfBounds{ArgumentName: "percentDone"})
	default:
		t.Info.Progress = req.PercentDone
		body.Res = &types.UpdateProgressResponse{}
	}
	return body
}

func (t *clientTask) SetTaskDescription(req *types.SetTaskDescription) soap.HasFault {
	description := req.Description
	t.Info.Description = &description
	return &methods.SetTaskDescriptionBody{Res: &types.SetTaskDescriptionResponse{}}
}

func (t *clientTask) CancelTask(req *types.CancelTask) soap.HasFault {
	body := &methods.CancelTaskBody{}
	switch {
	case !t.Info.Cancelable:
		body.Fault_ = simulator.Fault("the task cannot be cancelled", &types.NotSupported{})
	case t.finished():
		body.Fault_ = simulator.Fault("the task has already ended", &types.InvalidState{})
	default:
		now := time.Now()
		t.Info.State = types.TaskInfoStateError
		t.Info.Cancelled = true
		t.Info.Error = &types.LocalizedMethodFault{Fault: &types.RequestCanceled{}, LocalizedMessage: "the task was cancelled"}
		t.Info.CompleteTime = &now
		body.Res = &types.CancelTaskResponse{}
	}
	return body
}
